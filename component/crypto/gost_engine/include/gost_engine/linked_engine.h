#pragma once

// The GOST engine reaches OpenSSL in one of two ways: on Linux OpenSSL loads
// the distribution's engine module by name; the Windows programs have the
// engine linked in (no engine DLL, no engine path), and it must be put on
// OpenSSL's engine list before anything looks it up by name.

#ifdef ICT_GOST_ENGINE_LINKED
extern "C" void ENGINE_load_gost(void);
#endif

namespace gost_engine {

// Idempotent and thread-safe; does nothing where the engine is not linked in.
inline void AddLinkedEngine() {
#ifdef ICT_GOST_ENGINE_LINKED
    // One static for the whole program (inline function): the engine is
    // added once, whichever library asks first.
    static const bool added = [] {
        ENGINE_load_gost();
        return true;
    }();
    (void)added;
#endif
}

}  // namespace gost_engine

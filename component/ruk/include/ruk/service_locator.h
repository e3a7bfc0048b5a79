#pragma once

#include "ruk/intrusive_ptr.h"
#include "ruk/result.h"
#include "ruk/trace.h"

namespace ruk {

// The framework's service object, handed out by the root locator; the tool
// holds one for its lifetime.
class IService : public RefCounted {
public:
    virtual const char* GetName() const = 0;
};

// Entry point to the framework's process-wide objects.
class IServiceLocator {
public:
    virtual ~IServiceLocator() = default;
    virtual result_t GetService(intrusive_ptr<IService>* service) = 0;
    // A new framework tracer with no channel and level 0.
    virtual result_t CreateTracer(intrusive_ptr<ITracer>* tracer) = 0;
};

// The root locator; lives for the whole process.
IServiceLocator* GetRootServiceLocator();

}  // namespace ruk

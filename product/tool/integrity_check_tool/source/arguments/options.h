#pragma once

// The command-line option names and their descriptions as the help prints
// them, shared by the arguments classes.
namespace integrity_check_tool::option {

constexpr const char* Help = "help";
constexpr const char* Version = "version";
constexpr const char* Verbose = "verbose";
constexpr const char* Trace = "trace";
constexpr const char* SignatureType = "signature-type";
constexpr const char* SignatureOnly = "signature-only";
constexpr const char* Crl = "crl";
constexpr const char* SingleFile = "single_file";
constexpr const char* Define = "define";
constexpr const char* Program = "program";
constexpr const char* Manifest = "manifest";

inline const char* HelpDescription() {
    return "display Help for tool settings";
}
inline const char* VersionDescription() {
    return "display tool version";
}
inline const char* VerboseDescription() {
    return "extended info output";
}
inline const char* TraceDescription() {
    return "file for logging at the DEBUG level";
}
// %1%: the signature type names joined by " | ".
inline const char* SignatureTypeDescription() {
    return "signature type( %1% )";
}
inline const char* SignatureOnlyDescription() {
    return "verify only file signature";
}
inline const char* CrlDescription() {
    return "VDS CRL file or storage directory";
}
inline const char* SingleFileDescription() {
    return "verify only specified file";
}
inline const char* DefineDescription() {
    return "set definition for manifest or configuration filtering";
}

inline const char* VisibleCaption() {
    return "Options";
}
// Wide enough that no description of ours is wrapped.
constexpr unsigned HelpLineLength = 100;
inline const char* HiddenCaption() {
    return "Hidden";
}

}  // namespace integrity_check_tool::option

#pragma once

// The C entry points of a hub library module: the SDK adapter built as a shared library that
// Tarvel loads at start. The module and Tarvel share the C++ classes of the stem seam, so a module
// is only usable by a Tarvel whose seam has the same shape; the interface version says which.

namespace stem {

class Backend;

// Bump whenever Backend.h, Module.h or Types.h change in a way that alters a class's layout or
// a virtual call: a module built against the old seam would call into the wrong slots.
inline constexpr int kModuleInterfaceVersion = 1;

// Hands one log line (UTF-8) to Tarvel's logger; the module has no logger of its own.
using ModuleLogFunction = void (*)(const char* line);

inline constexpr char kModuleInterfaceVersionSymbol[] = "tarvel_stem_module_interface_version";
inline constexpr char kModuleDescriptionSymbol[] = "tarvel_stem_module_description";
inline constexpr char kModuleCreateBackendSymbol[] = "tarvel_stem_module_create_backend";

using ModuleInterfaceVersionFunction = int (*)();
using ModuleDescriptionFunction = const char* (*)();
// The caller owns the backend; the module stays loaded for the life of the process.
using ModuleCreateBackendFunction = Backend* (*)(ModuleLogFunction log);

}  // namespace stem

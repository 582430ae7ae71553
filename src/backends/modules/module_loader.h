#pragma once

// Optional parts of the program live in modules loaded at their first use, so that a start
// does not pay for libraries most runs never touch.

namespace pw {

// The environment variable naming a folder searched for modules before any other; the tests
// point it at the build's output folder, since their executables live elsewhere.
inline constexpr const char *kModuleDirVariable = "PAGEWRIGHT_MODULE_DIR";

// The address of `symbol` in the module file `name` ("pw_pdf_reading.so"), looked for in the
// folder named by kModuleDirVariable, then beside the running program, then in the installed
// module folder ("../lib/pagewright" from an installed program's folder). The module stays
// loaded for the rest of the process. Null when none has the module or the symbol.
void *moduleSymbol(const char *name, const char *symbol);

} // namespace pw

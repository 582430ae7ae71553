#include "module_loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>

namespace pw {

namespace {

std::string programFolder()
{
    char exe[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0)
        return {};
    const std::string path(exe, size_t(n));
    return path.substr(0, path.rfind('/') + 1);
}

std::string folderFromEnvironment()
{
    const char *folder = std::getenv(kModuleDirVariable);
    return folder && *folder ? std::string(folder) + "/" : std::string();
}

} // namespace

void *moduleSymbol(const char *name, const char *symbol)
{
    const std::string program = programFolder();
    const std::string installed = program.empty() ? "" : program + PW_MODULE_FROM_PROGRAM + "/";
    for (const std::string &folder : {folderFromEnvironment(), program, installed}) {
        if (folder.empty())
            continue;
        // Never unloaded: the libraries behind a module keep state for the rest of the process.
        if (void *module = ::dlopen((folder + name).c_str(), RTLD_NOW | RTLD_LOCAL))
            return ::dlsym(module, symbol);
    }
    return nullptr;
}

} // namespace pw

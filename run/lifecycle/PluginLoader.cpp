// dlopen-based loading of the plug-in, with the library's own error text in
// every failure so a wrong plug-in path is easy to tell from a broken build.
#include "PluginLoader.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace isodata_run {

std::string DefaultPluginPath() {
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    const std::string name = "libisodata.so";
    if (ec) return name;
    // Beside the program in a build, in the library folder once installed.
    const std::filesystem::path installed = self.parent_path() / ISODATA_LIBDIR_FROM_BINDIR / name;
    if (std::filesystem::exists(installed, ec)) return installed.lexically_normal().string();
    return (self.parent_path() / name).string();
}

PluginLibrary::PluginLibrary(void* handle, Factory runFactory) : handle_(handle), runFactory_(runFactory) {}

PluginLibrary::~PluginLibrary() { dlclose(handle_); }

std::unique_ptr<PluginLibrary> PluginLibrary::Open(const std::string& path, std::string& error) {
    // A bare name would make dlopen search the system's library path instead
    // of the file the user meant.
    const std::string target = path.find('/') == std::string::npos ? "./" + path : path;
    dlerror();
    void* handle = dlopen(target.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* why = dlerror();
        error = "cannot load the plug-in '" + path + "': " + (why ? why : "unknown error");
        return nullptr;
    }
    void* symbol = dlsym(handle, "GetAlgoObj");
    if (!symbol) {
        dlclose(handle);
        error = "'" + path + "' is not a classification plug-in: it has no GetAlgoObj entry point";
        return nullptr;
    }
    void* withOptions = dlsym(handle, "GetAlgoObjWithOptions");
    if (!withOptions) {
        dlclose(handle);
        error = "'" + path + "' is a classification plug-in without runs with options (no GetAlgoObjWithOptions "
                "entry point); this program needs one that has them";
        return nullptr;
    }
    return std::unique_ptr<PluginLibrary>(new PluginLibrary(handle, reinterpret_cast<Factory>(withOptions)));
}

KalUtility::_ptr_t<KalAlgo::IKalAlgo> PluginLibrary::CreateRunAlgorithm() {
    return KalUtility::_ptr_t<KalAlgo::IKalAlgo>(runFactory_());
}


} // namespace isodata_run

// Loads the classification plug-in the way the host application does: open
// the shared library, look up GetAlgoObj, and take the algorithm object it
// hands out; and GetAlgoObjWithOptions beside it, whose object runs a
// record with options (IsodataRun.h), which is what a run uses.
#pragma once

#include <KalAlgo.h>

#include <memory>
#include <string>

namespace isodata_run {

// libisodata.so beside the running executable, or in the library folder of
// the prefix it was installed into.
std::string DefaultPluginPath();

// An open plug-in library; closes it on destruction. Every object it created
// must be gone by then, since their code lives in the library.
class PluginLibrary {
public:
    // Null with error set when the library cannot be opened or lacks the entry point.
    static std::unique_ptr<PluginLibrary> Open(const std::string& path, std::string& error);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // A new algorithm object of the run with options; null when the plug-in gives none.
    KalUtility::_ptr_t<KalAlgo::IKalAlgo> CreateRunAlgorithm();

private:
    using Factory = KalAlgo::IKalAlgo* (*)();
    PluginLibrary(void* handle, Factory runFactory);

    void* handle_;
    Factory runFactory_;
};

} // namespace isodata_run

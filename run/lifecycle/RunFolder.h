// The private folder a run works in, and the one owner of its layout (the
// Part list below): links to the input's files, the plug-in's working copy
// and scratch files beside them, the plug-in's own ENVI result when another
// format was asked for, and the new result and preview. Nothing of the
// user's is written until the result is published.
//
// A run holds an exclusive lock on the folder's "lock" file for as long as
// it lives, so a folder that nobody holds was left by a killed run.
#pragma once

#include "RunRequest.h"

#include <memory>
#include <string>
#include <vector>

namespace isodata_run {

class RunFolder {
public:
    // A new locked folder ".isodata-run-XXXXXX" in parent; null with error set
    // when it cannot be made.
    static std::unique_ptr<RunFolder> Create(const std::string& parent, std::string& error);
    // Removes the folder and everything in it (links, never what they point to).
    ~RunFolder();
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;

    // The folder's parts. The plug-in runs in Input and writes its working
    // copy and scratch files beside its input there.
    enum class Part {
        Input,         // links to the input's files
        Result,        // the result as it will be published
        PluginResult,  // the plug-in's own ENVI result, before a conversion
        Preview,       // the quick-look
        Model,         // the class model file
        Report,        // the HTML report
    };

    const std::string& Path() const { return path_; }
    std::string Dir(Part part) const;
    // The path of a file called name in part, as seen from Dir(Part::Input).
    static std::string FromInputDir(Part part, const std::string& name);

    // Makes the input readable from Dir(Part::Input) under a plain name, with
    // every side file GDAL reads for it beside it, and returns that name.
    // Plain files are linked (GDAL's .aux.xml copied, so that GDAL never
    // writes through a link into the user's file); a VRT file is copied with
    // its sources named absolutely, as they are meant from the person's
    // folder; a GDAL virtual path, a subdataset name or an input with open
    // options gets a VRT that refers to it (through the links) and carries
    // the options. Empty with error set on failure.
    std::string PlaceInput(const InputSettings& input, std::string& error);
    // Whether PlaceInput links input as it is, so that the plug-in reads it
    // with its own driver rather than through a VRT.
    static bool PlacesAsLink(const InputSettings& input);

private:
    RunFolder(std::string path, int lockFd);
    // Links (or copies) files into Dir(Part::Input), each name once, none
    // called except.
    bool LinkFiles(const std::vector<std::string>& files, const std::string& except, std::string& error);

    std::string path_;
    int lockFd_;
};

// Removes the run folders in parent that no live run holds and returns
// their paths. A folder still being set up by another run is left alone.
std::vector<std::string> RemoveStaleRunFolders(const std::string& parent);

} // namespace isodata_run

// The files a classification run creates besides what the user named: the
// plug-in's working files beside the input, and the pieces an ENVI result is
// made of. The checks before a run and the clean-up after a failed one both
// need these names, so they are worked out here once.
#pragma once

#include <string>
#include <vector>

namespace isodata_cli {

// "<input>tem.tif": the plug-in's reduced working copy.
std::string TemporaryPathFor(const std::string& inputPath);

// The plug-in names its per-cluster scratch files "<base><k>.km", the base
// being the input path cut at its last '.', wherever that dot is (a dotted
// folder name counts too), and the whole path when there is none.
std::string ScratchBaseFor(const std::string& inputPath);
std::string ScratchFileFor(const std::string& inputPath, int cluster);
// The folder the scratch files land in.
std::string ScratchFolderFor(const std::string& inputPath);
// Whether path names one of the scratch files of a run on inputPath.
bool IsScratchFileFor(const std::string& path, const std::string& inputPath);
// Existing files that a run on inputPath would overwrite and then delete as
// scratch files, sorted.
std::vector<std::string> ExistingScratchFiles(const std::string& inputPath);

// The spelling of the input path to hand to the plug-in: of the equivalent
// spellings (normalised, as typed, relative to the current folder, absolute),
// the first whose last '.' lies in the file name, so the scratch files are
// named after the input and land beside it. An extension-less file inside a
// dotted folder has none; it gets the absolute path, and the scratch files go
// where that path's last '.' puts them.
std::string PluginInputPath(const std::string& typedPath);

// The files of an ENVI result at outputPath: the raw file, its header (the
// extension replaced by .hdr, as GDAL names it), GDAL's .aux.xml, and the RPC
// side files the plug-in copies from the input.
struct ResultFiles {
    std::string raw;
    std::string header;
    std::string auxXml;
    std::string rpcText;
    std::string rpb;

    std::vector<std::string> All() const { return {raw, header, auxXml, rpcText, rpb}; }
};
ResultFiles ResultFilesFor(const std::string& outputPath);

// Path helpers that work on paths which may not exist yet.
std::string FolderOf(const std::string& path);  // "." for a bare file name
std::string Canonical(const std::string& path);  // absolute, symlinks of existing parts resolved
bool SamePath(const std::string& a, const std::string& b);

// Whether a file can be created in folder, found out by creating (and
// removing) one, since permission bits say nothing for root or read-only mounts.
bool FolderIsWritable(const std::string& folder);

} // namespace isodata_cli

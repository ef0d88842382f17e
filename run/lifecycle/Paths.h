// Path helpers of a run and of its checks: the files a result is made of, and
// questions about paths that may not exist yet.
#pragma once

#include <string>
#include <vector>

namespace isodata_run {

// The files of a result at outputPath as GDAL and the host name them: the
// raster itself, the header of the plug-in's format (the file name's
// extension replaced by .hdr; none for other formats), GDAL's .aux.xml, and the RPC side files
// copied from the input.
struct ResultFiles {
    std::string raw;
    std::string header;
    std::string auxXml;
    std::string rpcText;
    std::string rpb;

    std::vector<std::string> All() const;
};
ResultFiles ResultFilesFor(const std::string& outputPath, const std::string& format);

// Whether format (GDAL's short name, in any case) is the plug-in's own.
bool IsResultFormat(const std::string& format);

std::string FolderOf(const std::string& path);   // "." for a bare file name
std::string FileNameOf(const std::string& path);
std::string Canonical(const std::string& path);  // absolute, symlinks of existing parts resolved
bool SamePath(const std::string& a, const std::string& b);
bool Exists(const std::string& path);            // a dangling link counts
// GDAL's virtual file systems (/vsizip/, /vsicurl/, ...) are no plain paths.
bool IsVirtualPath(const std::string& path);

// Whether a file can be created in folder, found out by creating (and
// removing) one, since permission bits say nothing for root or read-only mounts.
bool FolderIsWritable(const std::string& folder);

} // namespace isodata_run

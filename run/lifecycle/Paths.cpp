// Path helpers. Side-file names are the ones the contract gives GDAL's and
// the host's rules.
#include "Paths.h"

#include <FileNames.h>

#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_run {

bool IsResultFormat(const std::string& format) { return strcasecmp(format.c_str(), isodata::kResultFormat) == 0; }

ResultFiles ResultFilesFor(const std::string& outputPath, const std::string& format) {
    const isodata::RpcSideFiles rpc = isodata::RpcSideFilePaths(outputPath);
    return {outputPath, IsResultFormat(format) ? isodata::EnviHeaderPath(outputPath) : std::string(),
            isodata::AuxXmlPath(outputPath), rpc.text, rpc.rpb};
}

std::vector<std::string> ResultFiles::All() const {
    std::vector<std::string> all;
    for (const std::string* f : {&raw, &header, &auxXml, &rpcText, &rpb})
        if (!f->empty()) all.push_back(*f);
    return all;
}

std::string FolderOf(const std::string& path) {
    const fs::path parent = fs::path(path).parent_path();
    return parent.empty() ? std::string(".") : parent.string();
}

std::string FileNameOf(const std::string& path) { return fs::path(path).filename().string(); }

std::string Canonical(const std::string& path) {
    std::error_code ec;
    const fs::path p = fs::weakly_canonical(fs::absolute(path), ec);
    return ec ? fs::absolute(path).lexically_normal().string() : p.string();
}

bool SamePath(const std::string& a, const std::string& b) {
    std::error_code ec;
    // Hard links and bind mounts only show up as equivalent inodes.
    if (fs::exists(a, ec) && fs::exists(b, ec) && fs::equivalent(a, b, ec)) return true;
    return Canonical(a) == Canonical(b);
}

bool Exists(const std::string& path) {
    std::error_code ec;
    return fs::exists(fs::symlink_status(path, ec));
}

bool IsVirtualPath(const std::string& path) { return path.rfind("/vsi", 0) == 0; }

bool FolderIsWritable(const std::string& folder) {
    std::string probe = (fs::path(folder) / ".isodata-write-test-XXXXXX").string();
    const int fd = mkstemp(probe.data());
    if (fd < 0) return false;
    close(fd);
    unlink(probe.c_str());
    return true;
}

} // namespace isodata_run

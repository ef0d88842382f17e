// Names of the working and result files, following the rules the plug-in and
// GDAL's ENVI driver use, so the CLI can check and clean up exactly those.
#include "WorkFiles.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_cli {
namespace {

// Cut at the last '.' of the file name only; used for result side files,
// where GDAL and the host never look into folder names.
std::string WithoutExtension(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return path;
    return path.substr(0, dot);
}

bool IsScratchName(const std::string& name, const std::string& prefix) {
    const std::string suffix = ".km";
    if (name.size() <= prefix.size() + suffix.size()) return false;
    if (name.compare(0, prefix.size(), prefix) != 0) return false;
    if (name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) return false;
    const std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    return std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

} // namespace

std::string TemporaryPathFor(const std::string& inputPath) { return inputPath + "tem.tif"; }

std::string ScratchBaseFor(const std::string& inputPath) {
    const size_t dot = inputPath.rfind('.');
    return dot == std::string::npos ? inputPath : inputPath.substr(0, dot);
}

std::string ScratchFileFor(const std::string& inputPath, int cluster) {
    return ScratchBaseFor(inputPath) + std::to_string(cluster) + ".km";
}

std::string ScratchFolderFor(const std::string& inputPath) { return FolderOf(ScratchFileFor(inputPath, 0)); }

namespace {

// The part of a scratch file's name before the cluster number.
std::string ScratchPrefixFor(const std::string& inputPath) {
    return fs::path(ScratchBaseFor(inputPath)).filename().string();
}

} // namespace

bool IsScratchFileFor(const std::string& path, const std::string& inputPath) {
    return SamePath(FolderOf(path), ScratchFolderFor(inputPath)) &&
           IsScratchName(fs::path(path).filename().string(), ScratchPrefixFor(inputPath));
}

std::vector<std::string> ExistingScratchFiles(const std::string& inputPath) {
    const std::string folder = ScratchFolderFor(inputPath);
    const std::string prefix = ScratchPrefixFor(inputPath);
    std::vector<std::string> found;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        if (IsScratchName(name, prefix)) found.push_back((fs::path(folder) / name).string());
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::string PluginInputPath(const std::string& typedPath) {
    const fs::path typed(typedPath);
    const fs::path absolute = fs::absolute(typed).lexically_normal();
    std::error_code ec;
    const fs::path relative = fs::relative(absolute, fs::current_path(), ec);
    for (const fs::path& candidate : {typed.lexically_normal(), typed, relative, absolute}) {
        if (candidate.empty()) continue;
        // Good when the cut falls in the file name itself (or there is no dot
        // at all): the scratch files are then named after the input, beside it.
        const std::string text = candidate.string();
        const size_t dot = text.rfind('.');
        const size_t slash = text.rfind('/');
        if (dot == std::string::npos || slash == std::string::npos || dot > slash) return text;
    }
    return absolute.string();
}

ResultFiles ResultFilesFor(const std::string& outputPath) {
    const std::string base = WithoutExtension(outputPath);
    ResultFiles f;
    f.raw = outputPath;
    f.header = base + ".hdr";
    f.auxXml = outputPath + ".aux.xml";
    f.rpcText = base + "_rpc.txt";
    f.rpb = base + ".rpb";
    return f;
}

std::string FolderOf(const std::string& path) {
    const fs::path parent = fs::path(path).parent_path();
    return parent.empty() ? std::string(".") : parent.string();
}

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

bool FolderIsWritable(const std::string& folder) {
    std::string probe = (fs::path(folder) / ".isodata-write-test-XXXXXX").string();
    const int fd = mkstemp(probe.data());
    if (fd < 0) return false;
    close(fd);
    unlink(probe.c_str());
    return true;
}

} // namespace isodata_cli

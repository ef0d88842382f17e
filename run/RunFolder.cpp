// Creation, input placement, locking and removal of run folders.
//
//  1. Create: mkdtemp, then the lock: "lock.new" is created and locked and
//     only then renamed to "lock", so a "lock" file that can be locked always
//     belongs to a dead run.
//  2. PlaceInput: symbolic links under the files' own names (GDAL finds side
//     files by name), or a VRT for a virtual path.
//  3. Stale folders: "lock" present and lockable, or no "lock" at all and
//     older than a minute (its run died while setting up).
#include "RunFolder.h"

#include "Paths.h"

#include <GdalSession.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <gdal_priv.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_run {
namespace {

constexpr const char* kPrefix = ".isodata-run-";

// The parts' names, in the order of RunFolder::Part.
constexpr const char* kParts[] = {"input", "result", "envi", "preview", "model"};
const char* NameOf(RunFolder::Part part) { return kParts[static_cast<int>(part)]; }
constexpr auto kSetUpGrace = std::chrono::minutes(1);

std::string Errno(const std::string& what) { return what + ": " + std::strerror(errno); }

void RemoveTree(const std::string& path) {
    std::error_code ec;
    fs::remove_all(path, ec);  // links are removed, not followed
}

bool IsStale(const fs::path& folder) {
    const int fd = open((folder / "lock").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        std::error_code ec;
        const auto written = fs::last_write_time(folder, ec);
        return !ec && fs::file_time_type::clock::now() - written > kSetUpGrace;
    }
    const bool free = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);  // the lock, if taken, goes with the descriptor
    return free;
}

// An archive path inside a virtual path (/vsizip/scene.zip/a.tif) made
// absolute, since the run reads it from another folder.
std::string Anchored(const std::string& input) {
    const size_t slash = input.find('/', 1);
    if (slash == std::string::npos || slash + 1 >= input.size() || input[slash + 1] == '/') return input;
    const std::string inner = input.substr(slash + 1);
    if (inner.find("://") != std::string::npos) return input;  // a URL
    return input.substr(0, slash + 1) + fs::absolute(inner).string();
}

// A VRT in folder standing for a dataset GDAL reaches through a virtual path.
std::string WrapVirtualInput(const std::string& typed, const std::string& folder, std::string& error) {
    const std::string input = Anchored(typed);
    const std::string name = FileNameOf(input) + ".vrt";
    CPLErrorReset();
    const isodata::QuietGdalErrors quiet;
    GDALDatasetUniquePtr source(GDALDataset::Open(input.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    GDALDriver* vrt = GetGDALDriverManager()->GetDriverByName("VRT");
    GDALDatasetUniquePtr copy(source && vrt ? vrt->CreateCopy((folder + "/" + name).c_str(), source.get(), FALSE,
                                                              nullptr, nullptr, nullptr)
                                            : nullptr);
    if (!copy) {
        error = "cannot refer to '" + input + "' from the run folder: " + CPLGetLastErrorMsg();
        return {};
    }
    return name;
}

} // namespace

std::string RunFolder::Dir(Part part) const { return path_ + "/" + NameOf(part); }

std::string RunFolder::FromInputDir(Part part, const std::string& name) {
    return part == Part::Input ? name : std::string("../") + NameOf(part) + "/" + name;
}

RunFolder::RunFolder(std::string path, int lockFd) : path_(std::move(path)), lockFd_(lockFd) {}

RunFolder::~RunFolder() {
    RemoveTree(path_);
    close(lockFd_);
}

std::unique_ptr<RunFolder> RunFolder::Create(const std::string& parent, std::string& error) {
    std::string pattern = parent + "/" + kPrefix + "XXXXXX";
    if (!mkdtemp(pattern.data())) {
        error = Errno("cannot create a run folder in '" + parent + "'");
        return nullptr;
    }
    const std::string path = pattern;
    const std::string fresh = path + "/lock.new";
    const int fd = open(fresh.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const bool locked = fd >= 0 && flock(fd, LOCK_EX) == 0 && rename(fresh.c_str(), (path + "/lock").c_str()) == 0;
    std::error_code ec;
    bool made = locked;
    for (const char* part : kParts) made = made && fs::create_directory(path + "/" + part, ec);
    if (!made) {
        error = Errno("cannot set up the run folder '" + path + "'");
        if (fd >= 0) close(fd);
        RemoveTree(path);
        return nullptr;
    }
    return std::unique_ptr<RunFolder>(new RunFolder(path, fd));
}

std::string RunFolder::PlaceInput(const std::string& input, const std::vector<std::string>& inputFiles,
                                  std::string& error) {
    if (IsVirtualPath(input)) return WrapVirtualInput(input, Dir(Part::Input), error);
    std::set<std::string> placed;
    for (const std::string& file : inputFiles) {
        const std::string name = FileNameOf(file);
        if (!placed.insert(name).second) continue;
        const std::string target = Dir(Part::Input) + "/" + name;
        std::error_code ec;
        if (name.size() > 8 && name.compare(name.size() - 8, 8, ".aux.xml") == 0)
            fs::copy_file(file, target, ec);
        else
            fs::create_symlink(fs::absolute(file), target, ec);
        if (ec) {
            error = "cannot link '" + file + "' into the run folder '" + path_ + "': " + ec.message();
            return {};
        }
    }
    return FileNameOf(input);
}

std::vector<std::string> RemoveStaleRunFolders(const std::string& parent) {
    std::vector<std::string> removed;
    std::error_code ec;
    for (fs::directory_iterator it(parent, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        std::error_code typeError;
        if (name.rfind(kPrefix, 0) != 0 || !it->is_directory(typeError) || it->is_symlink(typeError)) continue;
        if (!IsStale(it->path())) continue;
        RemoveTree(it->path().string());
        removed.push_back(it->path().string());
    }
    return removed;
}

} // namespace isodata_run

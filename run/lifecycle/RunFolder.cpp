// Creation, input placement, locking and removal of run folders.
//
//  1. Create: mkdtemp, then the lock: "lock.new" is created and locked and
//     only then renamed to "lock", so a "lock" file that can be locked always
//     belongs to a dead run.
//  2. PlaceInput: symbolic links under the files' own names (GDAL finds side
//     files by name); a VRT input copied with its sources anchored; a VRT
//     standing for a virtual path, a subdataset or an input opened with
//     open options, since the plug-in opens a plain name without any.
//  3. Stale folders: "lock" present and lockable, or no "lock" at all and
//     older than a minute (its run died while setting up).
#include "RunFolder.h"

#include "InputNames.h"
#include "Paths.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_run {
namespace {

constexpr const char* kPrefix = ".isodata-run-";

// The parts' names, in the order of RunFolder::Part.
constexpr const char* kParts[] = {"input", "result", "envi", "preview", "model", "report"};
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

bool IsAuxXml(const std::string& name) {
    return name.size() > 8 && name.compare(name.size() - 8, 8, ".aux.xml") == 0;
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

bool RunFolder::LinkFiles(const std::vector<std::string>& files, const std::string& except, std::string& error) {
    std::set<std::string> placed{except};
    for (const std::string& file : files) {
        const std::string name = FileNameOf(file);
        if (IsVirtualPath(file) || !placed.insert(name).second) continue;
        const std::string target = Dir(Part::Input) + "/" + name;
        std::error_code ec;
        if (IsAuxXml(name))
            fs::copy_file(file, target, ec);
        else
            fs::create_symlink(fs::absolute(file), target, ec);
        if (ec) {
            error = "cannot link '" + file + "' into the run folder '" + path_ + "': " + ec.message();
            return false;
        }
    }
    return true;
}

bool RunFolder::PlacesAsLink(const InputSettings& input) {
    return !IsVirtualPath(input.path) && !SplitSubdatasetName(input.path) && input.openOptions.empty() &&
           input.driver != "VRT";
}

std::string RunFolder::PlaceInput(const InputSettings& input, std::string& error) {
    const std::string& path = input.path;
    const std::optional<SubdatasetName> sub = IsVirtualPath(path) ? std::nullopt : SplitSubdatasetName(path);
    std::vector<std::string> files = input.files;
    if (sub) files.push_back(sub->file);  // a driver may leave it out of its list
    const bool vrtFile = !sub && !IsVirtualPath(path) && input.driver == "VRT";
    if (!LinkFiles(files, vrtFile ? FileNameOf(path) : std::string(), error)) return {};
    if (vrtFile)
        return CopyVrtWithAnchoredSources(path, Dir(Part::Input) + "/" + FileNameOf(path), error) ? FileNameOf(path)
                                                                                                  : std::string();
    if (PlacesAsLink(input)) return FileNameOf(path);
    // The wrapped dataset is read through the links where there are links;
    // the child reads it from another folder than this one.
    const std::string links = fs::absolute(Dir(Part::Input)).string() + "/";
    std::string name = Anchored(path);
    if (sub && !IsVirtualPath(sub->file)) name = sub->With(links + FileNameOf(sub->file));
    else if (!sub && !IsVirtualPath(path)) name = links + FileNameOf(path);
    std::string wrapper = FileNameOf(sub ? sub->file : path) + ".vrt";
    while (Exists(Dir(Part::Input) + "/" + wrapper)) wrapper = "_" + wrapper;  // never written through a link
    return WrapInVrt(name, input.openOptions, Dir(Part::Input) + "/" + wrapper, error) ? wrapper : std::string();
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

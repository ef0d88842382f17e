// Publication with rename(2) semantics: renameat2's RENAME_NOREPLACE and
// RENAME_EXCHANGE give a no-clobber move and an undoable replacement; where a
// file system lacks them, link(2) and plain rename(2) stand in.
//
//  1. Stage: a file bound for another file system is copied next to its
//     final name first, so the commit step never copies.
//  2. Commit: one rename per file, remembering how to undo it.
//  3. On failure undo in reverse order; on success drop what was swapped
//     out and the stale pieces of the older result.
#include "Publish.h"

#include "Paths.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_run {
namespace {

struct Staged {
    std::string path;       // what gets renamed to the final name
    bool temporary = false; // a copy made beside the final name
    bool exchanged = false; // path now holds the file that was replaced
    bool committed = false;
};

// When either cannot be looked at, the move itself will say why.
bool SameFileSystem(const std::string& file, const std::string& folder) {
    struct stat a {}, b {};
    return stat(file.c_str(), &a) != 0 || stat(folder.c_str(), &b) != 0 || a.st_dev == b.st_dev;
}

bool CopyBeside(const Move& m, Staged& s, std::string& error) {
    std::string temp = FolderOf(m.to) + "/.isodata-publish-XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0) {
        error = "cannot copy the result to '" + FolderOf(m.to) + "': " + std::strerror(errno);
        return false;
    }
    s.path = temp;
    s.temporary = true;
    std::error_code ec;
    fs::copy_file(m.from, temp, fs::copy_options::overwrite_existing, ec);
    const bool synced = !ec && fsync(fd) == 0;
    const int why = ec ? ec.value() : errno;
    close(fd);
    if (!synced) error = "cannot copy the result to '" + m.to + "': " + std::strerror(why);
    return synced;
}

// The no-clobber move; link + unlink where renameat2 is not supported.
int MoveNew(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    if (link(from.c_str(), to.c_str()) != 0) return -1;
    return unlink(from.c_str());
}

bool Commit(const Move& m, Staged& s, bool overwrite, Notice& failure) {
    if (overwrite && Exists(m.to)) {
        if (renameat2(AT_FDCWD, s.path.c_str(), AT_FDCWD, m.to.c_str(), RENAME_EXCHANGE) == 0) {
            s.exchanged = s.committed = true;
            return true;
        }
        // Without an exchange the old file is simply replaced.
        if ((errno == EINVAL || errno == ENOSYS) && rename(s.path.c_str(), m.to.c_str()) == 0) {
            s.committed = true;
            return true;
        }
    } else if (MoveNew(s.path, m.to) == 0) {
        s.committed = true;
        return true;
    }
    if (errno == EEXIST)
        failure = {"'" + m.to + "' appeared while the run went on", {{AskField::Overwrite, "to replace it"}}};
    else
        failure = {"cannot move the result to '" + m.to + "': " + std::strerror(errno), {}};
    return false;
}

void Undo(const Move& m, const Staged& s) {
    if (!s.committed) return;
    if (s.exchanged) renameat2(AT_FDCWD, s.path.c_str(), AT_FDCWD, m.to.c_str(), RENAME_EXCHANGE);
    else if (!s.path.empty()) rename(m.to.c_str(), s.path.c_str());
}

} // namespace

bool Publish(const std::vector<Move>& moves, const std::vector<std::string>& staleFiles, bool overwrite,
             Notice& failure) {
    std::vector<Staged> staged(moves.size());
    bool ok = true;
    for (size_t i = 0; ok && i < moves.size(); ++i) {
        staged[i].path = moves[i].from;
        if (!SameFileSystem(moves[i].from, FolderOf(moves[i].to)))
            ok = CopyBeside(moves[i], staged[i], failure.message);
    }
    size_t done = 0;
    for (; ok && done < moves.size(); ++done) ok = Commit(moves[done], staged[done], overwrite, failure);
    if (!ok)
        for (size_t i = done; i-- > 0;) Undo(moves[i], staged[i]);
    for (const Staged& s : staged)
        if (s.temporary) unlink(s.path.c_str());
    if (!ok || !overwrite) return ok;
    for (const std::string& stale : staleFiles) {
        bool renewed = false;
        for (const Move& m : moves) renewed = renewed || SamePath(m.to, stale);
        if (!renewed) unlink(stale.c_str());
    }
    return true;
}

} // namespace isodata_run

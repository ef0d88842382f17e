// Creation, buffered writing, sequential reading and removal of the
// per-cluster scratch files.
//
//  1. Create: one write buffer of 65 536 indices per file, files opened
//     read-write with truncation (an open failure is not fatal: writes and
//     reads on such a file do nothing and readers see index 0).
//  2. Append/FlushBuffers: whole buffers are written as raw bytes.
//  3. Rewind/ReadNext: readers flush, seek to 0 and read runs in write order,
//     through a read-ahead buffer per file.
//  4. Remove: close and delete the files on Create's own list (never names
//     worked out again from a count, which could walk a range the run did
//     not create), free the buffers.
#include "ClassFiles.h"

#include "FileNames.h"

#include <cpl_error.h>

#include <algorithm>
#include <new>

namespace isodata {

ClassFiles::~ClassFiles() {
    for (auto& f : files_)
        if (f) f->close();
}

bool ClassFiles::Create(const QString& inputPath, std::uint64_t classCount) {
    const std::size_t n = static_cast<std::size_t>(classCount) + 1;
    fill_.assign(n, 0);
    buffers_.assign(n * kBufferEntries, 0);
    files_.clear();
    files_.reserve(n);
    readAhead_.assign(n, {});
    allWritten_ = true;
    for (std::size_t k = 0; k < n; ++k) {
        auto file = std::unique_ptr<QFile>(new (std::nothrow) QFile(ScratchFilePath(inputPath, k)));
        if (!file) return false;
        // Unbuffered: writes are already batched, and the bytes are on disk once
        // a block is done.
        file->open(QIODevice::ReadWrite | QIODevice::Truncate | QIODevice::Unbuffered);
        files_.push_back(std::move(file));
    }
    return true;
}

void ClassFiles::WriteBuffer(std::size_t k) {
    const char* data = reinterpret_cast<const char*>(&buffers_[k * kBufferEntries]);
    const qint64 bytes = static_cast<qint64>(fill_[k]) * static_cast<qint64>(sizeof(std::uint32_t));
    if (files_[k]->write(data, bytes) != bytes) {
        // The pass goes on as it always has (readers then see index 0 for
        // what is missing); raising it through GDAL's error channel lets a
        // host that watches that channel know not to trust the result.
        if (allWritten_)
            CPLError(CE_Failure, CPLE_FileIO, "Cannot write the scratch file '%s': %s",
                     files_[k]->fileName().toUtf8().constData(), files_[k]->errorString().toUtf8().constData());
        allWritten_ = false;
    }
    fill_[k] = 0;
}

void ClassFiles::FlushBuffers() {
    for (std::size_t k = 0; k < fill_.size(); ++k)
        if (fill_[k] != 0) WriteBuffer(k);
}

void ClassFiles::Rewind(std::size_t k) {
    files_[k]->flush();
    files_[k]->seek(0);
    readAhead_[k].bytes.clear();
    readAhead_[k].next = 0;
}

void ClassFiles::ReadNext(std::size_t k, std::uint32_t n, std::vector<std::uint32_t>& out) {
    out.assign(n, 0);
    char* to = reinterpret_cast<char*>(out.data());
    std::size_t wanted = static_cast<std::size_t>(n) * sizeof(std::uint32_t);
    ReadAhead& ahead = readAhead_[k];
    while (wanted > 0) {
        if (ahead.next == ahead.bytes.size()) {
            // A failed or empty read ends the file for this reader.
            ahead.bytes.resize(static_cast<std::size_t>(kReadAheadBytes));
            const qint64 got = files_[k]->read(ahead.bytes.data(), kReadAheadBytes);
            ahead.bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
            ahead.next = 0;
            if (ahead.bytes.empty()) return;
        }
        const std::size_t take = std::min(wanted, ahead.bytes.size() - ahead.next);
        std::copy_n(ahead.bytes.data() + ahead.next, take, to);
        ahead.next += take;
        to += take;
        wanted -= take;
    }
}

void ClassFiles::Remove() {
    std::vector<std::uint32_t>().swap(buffers_);
    std::vector<std::int32_t>().swap(fill_);
    std::vector<ReadAhead>().swap(readAhead_);
    allWritten_ = false;
    for (const auto& file : files_)
        if (file->exists()) file->remove();  // closes it first
    files_.clear();
}

} // namespace isodata

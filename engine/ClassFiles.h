// Per-cluster scratch files: the block-relative indices of every cluster's
// members, written by a classification pass and read back by the statistics
// and the split. Membership of the whole image is never held in memory.
//
// File k lies beside the input under ScratchFilePath(input, k) (contract/
// FileNames.h). Its content is a headerless run of native-endian 32-bit
// unsigned indices, block after block, in the order the pass met the pixels.
// One file more than there are clusters is created; it stays empty.
#pragma once

#include <QFile>
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

namespace isodata {

class ClassFiles {
public:
    static constexpr int kBufferEntries = 65536;
    static constexpr qint64 kReadAheadBytes = 65536;

    ClassFiles() = default;
    ~ClassFiles();
    ClassFiles(const ClassFiles&) = delete;
    ClassFiles& operator=(const ClassFiles&) = delete;

    // Opens files 0..classCount anew (truncated) with empty write buffers.
    // False only when a file object cannot be made.
    bool Create(const QString& inputPath, std::uint64_t classCount);

    // Appends one member index of cluster k, writing the buffer out first
    // when it is full.
    void Append(std::size_t k, std::uint32_t index) {
        if (fill_[k] >= kBufferEntries) WriteBuffer(k);
        buffers_[k * kBufferEntries + fill_[k]] = index;
        ++fill_[k];
    }
    // Writes every non-empty buffer; called at the end of each block.
    void FlushBuffers();

    // Makes the next reads of file k start from its beginning.
    void Rewind(std::size_t k);
    // Reads the next n indices of file k into out (resized to n). Entries a
    // short read leaves unfilled are 0. The file is read ahead in runs of
    // kReadAheadBytes; the bytes handed out are the file's, in its order.
    void ReadNext(std::size_t k, std::uint32_t n, std::vector<std::uint32_t>& out);

    // Closes and deletes the files the last Create made, those that exist,
    // and frees the buffers. Nothing else is touched, whatever the count.
    void Remove();

    // True while every index appended since Create reached its file.
    bool AllWritten() const { return allWritten_; }

private:
    // Bytes of one file read ahead and not yet handed out.
    struct ReadAhead {
        std::vector<char> bytes;
        std::size_t next = 0;
    };

    void WriteBuffer(std::size_t k);

    std::vector<std::unique_ptr<QFile>> files_;
    std::vector<std::uint32_t> buffers_;
    std::vector<std::int32_t> fill_;
    std::vector<ReadAhead> readAhead_;
    bool allWritten_ = false;
};

} // namespace isodata

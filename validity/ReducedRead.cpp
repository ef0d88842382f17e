// Whole-band reads into a buffer whose resident memory stays bounded.
//
//  1. Small bands go to zeroed heap memory, as they always did.
//  2. Larger ones go to a nameless file in the given folder (or the temporary
//     folder), its blocks reserved up front so that a full disk fails here
//     rather than in the middle of GDAL's read, mapped shared.
//  3. While GDAL's read fills the mapping, a thread drops the mapping's pages
//     from this process every few milliseconds; a shared file mapping keeps
//     its contents in the file, and GDAL's next touch of a page maps it again.
//     The caller drops the rows it has used the same way.
#include "ReducedRead.h"

#include <cpl_conv.h>
#include <gdal_priv.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

namespace isodata {

namespace {

// At the few GB a second GDAL writes, a few megabytes between two trims.
constexpr auto kTrimInterval = std::chrono::milliseconds(4);

// While it lives, drops the pages of [base, base + length) from the process
// every kTrimInterval.
class PageTrimmer {
public:
    PageTrimmer(void* base, std::size_t length) : thread_([this, base, length] { Run(base, length); }) {}
    ~PageTrimmer() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }
    PageTrimmer(const PageTrimmer&) = delete;
    PageTrimmer& operator=(const PageTrimmer&) = delete;

private:
    void Run(void* base, std::size_t length) {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!wake_.wait_for(lock, kTrimInterval, [this] { return stop_; })) madvise(base, length, MADV_DONTNEED);
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
    std::thread thread_;  // last: starts once the members it uses exist
};

// A file no other process can open, gone when its last descriptor closes.
int OpenNamelessFile(const std::string& folder) {
    if (folder.empty()) return -1;
#ifdef O_TMPFILE
    const int fd = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0) return fd;
#endif
    std::string name = folder + "/.isodata-scratch-XXXXXX";
    const int named = mkostemp(name.data(), O_CLOEXEC);
    if (named >= 0) unlink(name.c_str());
    return named;
}

std::string TemporaryFolder() {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::temp_directory_path(error);
    return error ? std::string("/tmp") : path.string();
}

std::size_t PageSize() {
    static const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

} // namespace

ReducedBuffer::ReducedBuffer(std::size_t bytes, const std::string& folder, std::size_t heapBytes) : bytes_(bytes) {
    if (bytes_ > heapBytes && (Map(bytes_, folder) || Map(bytes_, TemporaryFolder()))) return;
    data_ = static_cast<unsigned char*>(std::calloc(bytes_ == 0 ? 1 : bytes_, 1));
    if (!data_) throw std::bad_alloc();
}

ReducedBuffer::~ReducedBuffer() {
    if (mapped_)
        munmap(data_, bytes_);
    else
        std::free(data_);
}

bool ReducedBuffer::Map(std::size_t bytes, const std::string& folder) {
    const int fd = OpenNamelessFile(folder);
    if (fd < 0) return false;
    void* address = MAP_FAILED;
    if (posix_fallocate(fd, 0, static_cast<off_t>(bytes)) == 0)
        address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);  // the mapping keeps the file
    if (address == MAP_FAILED) return false;
    data_ = static_cast<unsigned char*>(address);
    mapped_ = true;
    return true;
}

namespace {

// Reads the picked rows of band and gathers the picked columns into data,
// width x height values of type.
CPLErr ReadPicked(GDALRasterBand* band, int width, int height, GDALDataType type, unsigned char* data) {
    const int x = band->GetXSize(), y = band->GetYSize();
    const std::vector<int> rows = NearestRows(0, y, y, height), columns = NearestColumns(0, x, x, width);
    const std::size_t size = static_cast<std::size_t>(GDALGetDataTypeSizeBytes(type));
    std::vector<unsigned char> line(static_cast<std::size_t>(x) * size);
    for (int r = 0; r < height; ++r) {
        const CPLErr read = band->RasterIO(GF_Read, 0, rows[static_cast<std::size_t>(r)], x, 1, line.data(), x, 1,
                                           type, 0, 0, nullptr);
        if (read != CE_None) return read;
        unsigned char* out = data + static_cast<std::size_t>(r) * static_cast<std::size_t>(width) * size;
        for (int c = 0; c < width; ++c)
            std::memcpy(out + static_cast<std::size_t>(c) * size,
                        line.data() + static_cast<std::size_t>(columns[static_cast<std::size_t>(c)]) * size, size);
    }
    return CE_None;
}

} // namespace

CPLErr ReducedBuffer::ReadWholeBand(GDALRasterBand* band, int width, int height, GDALDataType type,
                                    bool fullResolution) {
    const int x = band->GetXSize(), y = band->GetYSize();
    const bool picked = fullResolution && (width < x || height < y);
    const std::unique_ptr<PageTrimmer> trimmer(mapped_ ? new PageTrimmer(data_, bytes_) : nullptr);
    if (picked) return ReadPicked(band, width, height, type, data_);
    return band->RasterIO(GF_Read, 0, 0, x, y, data_, width, height, type, 0, 0, nullptr);
}

namespace {

// GDAL's nudge of every source coordinate before truncation.
constexpr double kEpsilon = 1e-10;

} // namespace

std::vector<int> NearestRows(int offset, int size, int bandSize, int count) {
    const double step = size / static_cast<double>(count);
    const double limit = static_cast<double>(bandSize - 1);
    std::vector<int> rows(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const double y = (i + 0.5) * step + static_cast<double>(offset) + kEpsilon;
        rows[static_cast<std::size_t>(i)] = static_cast<int>(std::min(std::max(0.0, y), limit));
    }
    return rows;
}

std::vector<int> NearestColumns(int offset, int size, int bandSize, int count) {
    const double step = size / static_cast<double>(count);
    const double last = static_cast<double>(bandSize - 1);
    std::vector<int> columns(static_cast<std::size_t>(count));
    double x = 0.5 * step + static_cast<double>(offset) + kEpsilon;
    for (int i = 0; i < count; ++i, x += step)
        columns[static_cast<std::size_t>(i)] = static_cast<int>(std::min(std::max(0.0, x), last));
    return columns;
}

bool HasOverviews(GDALDataset* dataset) {
    for (int b = 1; dataset && b <= dataset->GetRasterCount(); ++b) {
        GDALRasterBand* band = dataset->GetRasterBand(b);
        if (band->GetOverviewCount() > 0 || band->GetMaskBand()->GetOverviewCount() > 0) return true;
    }
    return false;
}

bool HandlesShareFiles(GDALDataset* dataset) {
    if (!dataset || !dataset->GetDriver() || !EQUAL(dataset->GetDriver()->GetDescription(), "VRT")) return false;
    char** xml = dataset->GetMetadata("xml:VRT");
    return xml && xml[0] && std::strstr(xml[0], "VRTRawRasterBand");
}

void ReducedBuffer::Release(std::size_t offset, std::size_t length) {
    if (!mapped_ || offset >= bytes_) return;
    const std::size_t start = offset / PageSize() * PageSize();
    madvise(data_ + start, std::min(bytes_, offset + length) - start, MADV_DONTNEED);
}

std::string FolderOf(const char* datasetPath) {
    if (!datasetPath || !*datasetPath) return std::string();
    const std::string folder = CPLGetPath(datasetPath);
    return folder.empty() ? std::string(".") : folder;
}

} // namespace isodata

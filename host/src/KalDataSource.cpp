// Opens and creates rasters through GDAL and wraps the GDAL dataset, its bands,
// colour tables and coordinate system in the host's reference-counted objects;
// also copies RPC side files from one raster to another.
#include "KalDataSource.h"

#include <cpl_error.h>
#include <cpl_string.h>
#include <gdal_priv.h>

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <limits>
#include <mutex>

namespace KalDataSource {

namespace {

// A host that never called RegisterPlugin still gets working opens and
// creates; GDALAllRegister itself is only run once per process.
void EnsureDriversRegistered() {
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
}

QByteArray Utf8(const QString& text) { return text.toUtf8(); }

CPLStringList ToStringList(const QStringList& items) {
    CPLStringList list;
    for (const QString& item : items) list.AddString(Utf8(item).constData());
    return list;
}

bool IsSouthUp(const RasterDataset& dataset) {
    double gt[6];
    return dataset.GetGeoTransform(gt) && gt[5] > 0.0;
}

// The envelope of a raster dataset, kept in step with its geotransform. The
// orientation is taken once, when the envelope is handed out, so that the
// intermediate extents seen while the four bounds are set one by one (where
// YMax may briefly lie below YMin) cannot flip it.
class DatasetEnvelope : public KalGeometry::Envelope {
public:
    explicit DatasetEnvelope(const _ptr_t<RasterDataset>& dataset)
        : dataset_(dataset), southUp_(IsSouthUp(*dataset)) {
        LoadExtent();
    }

    void SetXMin(double v) override { Update(xMin_, v); }
    void SetYMin(double v) override { Update(yMin_, v); }
    void SetXMax(double v) override { Update(xMax_, v); }
    void SetYMax(double v) override { Update(yMax_, v); }

private:
    void LoadExtent() {
        const std::array<double, 6> gt = dataset_->GeoTransform();
        const double w = dataset_->GetRasterXSize(), h = dataset_->GetRasterYSize();
        const double cornersPx[4][2] = {{0, 0}, {w, 0}, {0, h}, {w, h}};
        xMin_ = yMin_ = std::numeric_limits<double>::infinity();
        xMax_ = yMax_ = -std::numeric_limits<double>::infinity();
        for (const auto& c : cornersPx) {
            const double x = gt[0] + c[0] * gt[1] + c[1] * gt[2];
            const double y = gt[3] + c[0] * gt[4] + c[1] * gt[5];
            xMin_ = std::min(xMin_, x);
            xMax_ = std::max(xMax_, x);
            yMin_ = std::min(yMin_, y);
            yMax_ = std::max(yMax_, y);
        }
    }

    // An unchanged bound must leave the geotransform alone: re-deriving the
    // pixel size from the extent does not give back the same bits.
    void Update(double& bound, double v) {
        if (bound == v) return;
        bound = v;
        std::array<double, 6> gt = dataset_->GeoTransform();
        const double w = dataset_->GetRasterXSize(), h = dataset_->GetRasterYSize();
        gt[0] = xMin_;
        gt[1] = (xMax_ - xMin_) / w;
        gt[3] = southUp_ ? yMin_ : yMax_;
        gt[5] = southUp_ ? (yMax_ - yMin_) / h : -(yMax_ - yMin_) / h;
        dataset_->SetGeoTransform(gt.data());
    }

    _ptr_t<RasterDataset> dataset_;
    bool southUp_;
};

// Null for a band built by hand with a position the dataset does not have.
GDALRasterBand* GdalBand(const _ptr_t<RasterDataset>& owner, int index) {
    if (!owner || index < 0 || index >= owner->GetBandCount()) return nullptr;
    return owner->GetGDALDataset()->GetRasterBand(index + 1);
}

QString SideFileBase(const QString& path) {
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    return dot > slash ? path.left(dot) : path;
}

bool IsSameFile(const QString& a, const QString& b) {
    return QFile::exists(b) && QFileInfo(a).canonicalFilePath() == QFileInfo(b).canonicalFilePath();
}

// QFile::copy will not replace an existing file, so a stale side file left by
// an earlier run is removed first.
bool CopySideFile(const QString& source, const QString& target) {
    // Removing the target would delete the source itself.
    if (IsSameFile(source, target)) return true;
    if (QFile::exists(target) && !QFile::remove(target)) return false;
    return QFile::copy(source, target);
}

} // namespace

// ---- ColorEntry, ColorTable, SpatialReference ----

ColorEntry::ColorEntry(std::int16_t r, std::int16_t g, std::int16_t b, std::int16_t a)
    : c1(r), c2(g), c3(b), c4(a) {}
ColorEntry::~ColorEntry() = default;

ColorTable::~ColorTable() = default;

void ColorTable::AddColorEntry(const _ptr_t<ColorEntry>& entry) { entries_.push_back(entry); }

_ptr_t<ColorEntry> ColorTable::GetColorEntry(int i) const {
    if (i < 0 || i >= GetCount()) return nullptr;
    return entries_[static_cast<size_t>(i)];
}

SpatialReference::SpatialReference(const QString& wkt) : wkt_(wkt) {}
SpatialReference::~SpatialReference() = default;

// ---- RasterBand ----

RasterBand::RasterBand(const _ptr_t<RasterDataset>& owner, int index) : owner_(owner), index_(index) {}
RasterBand::~RasterBand() = default;

PixelDataType RasterBand::GetRasterDataType() {
    GDALRasterBand* band = GdalBand(owner_, index_);
    return band ? static_cast<PixelDataType>(band->GetRasterDataType()) : PDT_Unknown;
}

bool RasterBand::SetCategoryNames(QStringList names) {
    GDALRasterBand* band = GdalBand(owner_, index_);
    if (!band) return false;
    CPLStringList list = ToStringList(names);
    return band->SetCategoryNames(list.List()) == CE_None;
}

bool RasterBand::SetColorTable(const _ptr_t<ColorTable>& table) {
    GDALRasterBand* band = GdalBand(owner_, index_);
    if (!band) return false;
    if (!table) return band->SetColorTable(nullptr) == CE_None;
    GDALColorTable gdalTable(GPI_RGB);
    for (int i = 0; i < table->GetCount(); ++i) {
        // A missing entry still takes its slot, so later entries keep their pixel values.
        const _ptr_t<ColorEntry> e = table->GetColorEntry(i);
        const ColorEntry fallback;
        const ColorEntry& c = e ? *e : fallback;
        const GDALColorEntry entry = {c.c1, c.c2, c.c3, c.c4};
        gdalTable.SetColorEntry(i, &entry);
    }
    return band->SetColorTable(&gdalTable) == CE_None;
}

QStringList RasterBand::GetCategoryNames() {
    QStringList names;
    GDALRasterBand* band = GdalBand(owner_, index_);
    char** list = band ? band->GetCategoryNames() : nullptr;
    for (int i = 0; list && list[i]; ++i) names << QString::fromUtf8(list[i]);
    return names;
}

// A band without a colour table gives an empty table rather than null, so a
// caller can always ask for the count.
_ptr_t<ColorTable> RasterBand::GetColorTable() {
    _ptr_t<ColorTable> table(new ColorTable);
    GDALRasterBand* band = GdalBand(owner_, index_);
    const GDALColorTable* source = band ? band->GetColorTable() : nullptr;
    for (int i = 0; source && i < source->GetColorEntryCount(); ++i) {
        const GDALColorEntry* e = source->GetColorEntry(i);
        table->AddColorEntry(_ptr_t<ColorEntry>(new ColorEntry(e->c1, e->c2, e->c3, e->c4)));
    }
    return table;
}

// ---- Dataset, RasterDataset ----

Dataset::Dataset(GDALDataset* handle, const QString& path) : handle_(handle), path_(path) {}

// Closing is what makes GDAL write the file out (ENVI writes its header
// here), so the last reference going away completes the file.
Dataset::~Dataset() {
    if (handle_) GDALClose(handle_);
}

RasterDataset::RasterDataset(GDALDataset* handle, const QString& path) : Dataset(handle, path) {}
RasterDataset::~RasterDataset() = default;

int RasterDataset::GetRasterXSize() const { return GetGDALDataset()->GetRasterXSize(); }
int RasterDataset::GetRasterYSize() const { return GetGDALDataset()->GetRasterYSize(); }
int RasterDataset::GetBandCount() const { return GetGDALDataset()->GetRasterCount(); }

_ptr_t<RasterBand> RasterDataset::GetRasterBand(int index) {
    if (index < 0 || index >= GetBandCount()) return nullptr;
    return _ptr_t<RasterBand>(new RasterBand(_ptr_t<RasterDataset>(this), index));
}

bool RasterDataset::GetGeoTransform(double transform[6]) const {
    if (GetGDALDataset()->GetGeoTransform(transform) == CE_None) return true;
    const double identity[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
    std::copy(identity, identity + 6, transform);
    return false;
}

bool RasterDataset::SetGeoTransform(const double transform[6]) {
    double copy[6];
    std::copy(transform, transform + 6, copy);
    return GetGDALDataset()->SetGeoTransform(copy) == CE_None;
}

std::array<double, 6> RasterDataset::GeoTransform() const {
    std::array<double, 6> gt;
    GetGeoTransform(gt.data());
    return gt;
}

_ptr_t<KalGeometry::Envelope> RasterDataset::GetEnvelope() {
    return _ptr_t<KalGeometry::Envelope>(new DatasetEnvelope(_ptr_t<RasterDataset>(this)));
}

_ptr_t<SpatialReference> RasterDataset::GetSpatialReference() const {
    const char* wkt = GetGDALDataset()->GetProjectionRef();
    if (!wkt || !*wkt) return nullptr;
    return _ptr_t<SpatialReference>(new SpatialReference(QString::fromUtf8(wkt)));
}

// A null reference clears the coordinate system.
bool RasterDataset::SetSpatialReference(const _ptr_t<SpatialReference>& srs) {
    const QByteArray wkt = srs ? Utf8(srs->GetWkt()) : QByteArray();
    return GetGDALDataset()->SetProjection(wkt.constData()) == CE_None;
}

// ---- DatasetFactory ----

DatasetFactory* DatasetFactory::Instance() {
    static DatasetFactory factory;
    return &factory;
}

void DatasetFactory::RegisterPlugin() { EnsureDriversRegistered(); }

_ptr_t<Dataset> DatasetFactory::OpenDataset(const QString& path, int openMode) {
    if (openMode != OpenReadOnly && openMode != OpenUpdate) return nullptr;
    EnsureDriversRegistered();
    const unsigned flags = GDAL_OF_RASTER | (openMode == OpenUpdate ? GDAL_OF_UPDATE : GDAL_OF_READONLY);
    GDALDataset* handle = nullptr;
    {
        // A failed open is reported through a null handle; GDAL's own message
        // would only be noise on the host's console. Likewise a failed create.
        CPLErrorHandlerPusher quiet(CPLQuietErrorHandler);
        handle = GDALDataset::Open(Utf8(path).constData(), flags);
    }
    if (!handle) return nullptr;
    return _ptr_t<Dataset>(new RasterDataset(handle, path));
}

_ptr_t<RasterDataset> DatasetFactory::OpenRasterDataset(const QString& path, int openMode) {
    return KalUtility::dynamic_ptr_cast<RasterDataset>(OpenDataset(path, openMode));
}

_ptr_t<RasterDataset> DatasetFactory::CreateRasterDataset(const QString& path, int width, int height,
                                                          int bandCount, PixelDataType type,
                                                          const QString& driverName,
                                                          const QStringList& options) {
    EnsureDriversRegistered();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(Utf8(driverName).constData());
    if (!driver) return nullptr;
    CPLStringList createOptions = ToStringList(options);
    GDALDataset* handle = nullptr;
    {
        CPLErrorHandlerPusher quiet(CPLQuietErrorHandler);
        handle = driver->Create(Utf8(path).constData(), width, height, bandCount,
                                static_cast<GDALDataType>(type), createOptions.List());
    }
    if (!handle) return nullptr;
    return _ptr_t<RasterDataset>(new RasterDataset(handle, path));
}

bool DatasetFactory::CopyRPCFile(const _ptr_t<RasterDataset>& from, const _ptr_t<RasterDataset>& to) {
    if (!from || !to) return false;
    return CopyRPCFile(from->GetPath(), to->GetPath());
}

// The text form is preferred when a raster carries both kinds.
bool DatasetFactory::CopyRPCFile(const QString& fromPath, const QString& toPath) {
    const QString fromBase = SideFileBase(fromPath);
    const QString toBase = SideFileBase(toPath);
    for (const char* suffix : {"_rpc.txt", ".rpb"}) {
        const QString source = fromBase + QLatin1String(suffix);
        if (QFile::exists(source)) return CopySideFile(source, toBase + QLatin1String(suffix));
    }
    return false;
}

} // namespace KalDataSource

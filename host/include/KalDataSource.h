// The host's data-source library over GDAL: a factory that opens and creates
// raster datasets, the datasets and their bands, colour tables, and the copy
// of RPC side files.
//
// Behaviour that the host leaves open is settled here as GDAL users expect:
//  - Open mode 0 is read-only, 1 is update.
//  - Opening a path that is not a raster gives a null handle; it never throws
//    and prints nothing.
//  - The envelope a raster dataset hands out is bound to it: setting one of
//    its bounds re-derives the dataset's geotransform from the extent and the
//    raster size (origin at XMin/YMax, pixel size = extent / raster size). A
//    bound set to the value it already has changes nothing, so copying the
//    envelope of a dataset of the same size keeps its geotransform bit for bit.
//  - CopyRPCFile copies the source's "<base>_rpc.txt" or "<base>.rpb" side
//    file to the same kind of name beside the target.
//  - Pixel-type codes are GDAL's data-type numbers.
#pragma once

#include "KalGeometry.h"
#include "KalUtility.h"

#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>
#include <vector>

class GDALDataset;

namespace KalDataSource {

using KalUtility::_ptr_t;

// Pixel-type codes, equal to GDAL's GDALDataType numbers.
enum PixelDataType : int {
    PDT_Unknown = 0,
    PDT_Byte = 1,
    PDT_UInt16 = 2,
    PDT_Int16 = 3,
    PDT_UInt32 = 4,
    PDT_Int32 = 5,
    PDT_Float32 = 6,
    PDT_Float64 = 7,
};

enum OpenMode : int {
    OpenReadOnly = 0,
    OpenUpdate = 1,
};

// One colour of a colour table: four 16-bit signed components (red, green,
// blue, alpha). Alpha defaults to 255 (opaque).
class KAL_API ColorEntry : public KalUtility::CRef {
public:
    ColorEntry() = default;
    ColorEntry(std::int16_t c1, std::int16_t c2, std::int16_t c3, std::int16_t c4 = 255);
    ~ColorEntry() override;

    std::int16_t c1 = 0, c2 = 0, c3 = 0, c4 = 255;
};

// Entry i is the colour of pixel value i.
class KAL_API ColorTable : public KalUtility::CRef {
public:
    ColorTable() = default;
    ~ColorTable() override;

    void AddColorEntry(const _ptr_t<ColorEntry>& entry);
    int GetCount() const { return static_cast<int>(entries_.size()); }
    _ptr_t<ColorEntry> GetColorEntry(int i) const;

private:
    std::vector<_ptr_t<ColorEntry>> entries_;
};

// A coordinate system, held as WKT.
class KAL_API SpatialReference : public KalUtility::CRef {
public:
    explicit SpatialReference(const QString& wkt);
    ~SpatialReference() override;
    QString GetWkt() const { return wkt_; }

private:
    QString wkt_;
};

class RasterDataset;

// Band i of a raster dataset (0-based here, GDAL band i + 1).
class KAL_API RasterBand : public KalUtility::CRef {
public:
    RasterBand(const _ptr_t<RasterDataset>& owner, int index);
    ~RasterBand() override;

    virtual PixelDataType GetRasterDataType();
    virtual bool SetCategoryNames(QStringList names);
    virtual bool SetColorTable(const _ptr_t<ColorTable>& table);
    // Reads the band's category names and colour table back (empty when unset).
    virtual QStringList GetCategoryNames();
    virtual _ptr_t<ColorTable> GetColorTable();

private:
    _ptr_t<RasterDataset> owner_;
    int index_;
};

// Base of every dataset the factory opens; owns the GDAL handle and closes it
// when the last reference goes.
class KAL_API Dataset : public KalUtility::CRef {
public:
    Dataset(GDALDataset* handle, const QString& path);
    ~Dataset() override;

    GDALDataset* GetGDALDataset() const { return handle_; }
    QString GetPath() const { return path_; }
    // The text the host associates with a dataset: its file path.
    virtual QString GetName() const { return path_; }

private:
    GDALDataset* handle_;
    QString path_;
};

class KAL_API RasterDataset : public Dataset {
public:
    RasterDataset(GDALDataset* handle, const QString& path);
    ~RasterDataset() override;

    int GetRasterXSize() const;
    int GetRasterYSize() const;
    int GetBandCount() const;
    // Null when the dataset has no band at that 0-based position.
    _ptr_t<RasterBand> GetRasterBand(int index);

    // The six affine coefficients; false (and the identity) when none is set.
    bool GetGeoTransform(double transform[6]) const;
    bool SetGeoTransform(const double transform[6]);
    std::array<double, 6> GeoTransform() const;

    // An envelope bound to this dataset (see the file comment).
    _ptr_t<KalGeometry::Envelope> GetEnvelope();

    // Null when the dataset has no coordinate system.
    _ptr_t<SpatialReference> GetSpatialReference() const;
    bool SetSpatialReference(const _ptr_t<SpatialReference>& srs);
};

class KAL_API DatasetFactory {
public:
    static DatasetFactory* Instance();

    // Registers GDAL's drivers; safe to call any number of times.
    void RegisterPlugin();

    // Null when the path does not open as a raster.
    _ptr_t<Dataset> OpenDataset(const QString& path, int openMode);
    _ptr_t<RasterDataset> OpenRasterDataset(const QString& path, int openMode);
    // Null when the driver is unknown or the file cannot be created.
    _ptr_t<RasterDataset> CreateRasterDataset(const QString& path, int width, int height,
                                              int bandCount, PixelDataType type,
                                              const QString& driverName,
                                              const QStringList& options = QStringList());

    // Copies from's RPC side file beside to; false when there is none or the
    // copy fails.
    static bool CopyRPCFile(const _ptr_t<RasterDataset>& from, const _ptr_t<RasterDataset>& to);
    static bool CopyRPCFile(const QString& fromPath, const QString& toPath);

private:
    DatasetFactory() = default;
};

} // namespace KalDataSource

"""Arrays shown to GDAL as rasters, in place.

A numpy array of (bands, rows, cols) becomes a virtual raster (kept among
GDAL's in-memory files) whose bands are those of a GDAL memory dataset over
the array's own buffer: any positive strides serve (band-sequential,
band-interleaved, a window of a larger array), so no pixel is copied. Each
opening of it is a dataset of its own over the same memory, so threads that
read through their own handles never share a file position. Arrays whose
strides GDAL cannot follow (negative or zero), or of the other byte order,
are copied once into C order.
"""
import itertools
import os
import uuid
from xml.sax.saxutils import escape

import numpy as np

from . import _isodata
from ._errors import RequestError

#: The seven pixel types a run takes, as numpy and GDAL name them.
PIXEL_TYPES = {
    np.dtype(np.uint8): "Byte",
    np.dtype(np.uint16): "UInt16",
    np.dtype(np.int16): "Int16",
    np.dtype(np.uint32): "UInt32",
    np.dtype(np.int32): "Int32",
    np.dtype(np.float32): "Float32",
    np.dtype(np.float64): "Float64",
}
DTYPES = {name: dtype for dtype, name in PIXEL_TYPES.items()}

_counter = itertools.count()


def check_pixels(data, what="the array"):
    """data as a (bands, rows, cols) array of a pixel type, or RequestError."""
    if data.ndim != 3:
        raise RequestError(f"{what} has {data.ndim} dimension(s); expected (bands, rows, cols)")
    if 0 in data.shape:
        raise RequestError(f"{what} has shape {data.shape}; every dimension must hold at least one value")
    if data.dtype.newbyteorder("=") not in PIXEL_TYPES:  # either byte order
        kinds = ", ".join(str(t) for t in PIXEL_TYPES)
        raise RequestError(f"{what} holds {data.dtype}, which is not a pixel type of a run ({kinds})")


def _in_place(data):
    """data itself where GDAL can follow its strides, else a C-ordered copy."""
    if not data.flags.aligned or any(s <= 0 for s in data.strides) or not data.dtype.isnative:
        return np.ascontiguousarray(data, dtype=data.dtype.newbyteorder("="))
    return data


class VirtualRaster:
    """A context in which ``path`` names a raster reading ``data`` in place.

    data: (bands, rows, cols) of a pixel type. transform: GDAL's six
    geotransform numbers; crs: a WKT; nodata: one value for every band or
    None; descriptions: one text a band or None.
    """

    def __init__(self, data, transform=None, crs=None, nodata=None, descriptions=None):
        self.data = _in_place(data)
        folder = f"/vsimem/isodata-python/{os.getpid()}-{next(_counter)}-{uuid.uuid4().hex[:8]}"
        self.path = folder + "/array.vrt"
        self._xml = self._describe(transform, crs, nodata, descriptions)

    def _describe(self, transform, crs, nodata, descriptions):
        d = self.data
        bands, rows, cols = d.shape
        memory = (f"MEM:::DATAPOINTER={d.ctypes.data:#x},PIXELS={cols},LINES={rows},BANDS={bands},"
                  f"DATATYPE={PIXEL_TYPES[d.dtype]},PIXELOFFSET={d.strides[2]},LINEOFFSET={d.strides[1]},"
                  f"BANDOFFSET={d.strides[0]}")
        source = f'<SourceFilename relativeToVRT="0">{memory}</SourceFilename>'
        return _vrt(cols, rows, d.dtype, bands, source, "", transform, crs, nodata, descriptions)

    def __enter__(self):
        _isodata.write_text(self.path, self._xml)
        return self

    def __exit__(self, *exc):
        _isodata.unlink(self.path)
        return False


def _vrt(width, height, dtype, bands, source, window, transform, crs, nodata, descriptions):
    """A virtual raster whose band b is band b of source (a <SourceFilename>),
    read through window (<SrcRect> and <DstRect>, or nothing)."""
    type_name = PIXEL_TYPES[dtype]
    parts = [f'<VRTDataset rasterXSize="{width}" rasterYSize="{height}">']
    if crs:
        parts.append(f"<SRS>{escape(crs)}</SRS>")
    if transform is not None:
        parts.append("<GeoTransform>" + ", ".join(repr(float(v)) for v in transform) + "</GeoTransform>")
    for b in range(bands):
        parts.append(f'<VRTRasterBand dataType="{type_name}" band="{b + 1}">')
        if descriptions is not None and descriptions[b]:
            parts.append(f"<Description>{escape(str(descriptions[b]))}</Description>")
        if nodata is not None:
            parts.append(f"<NoDataValue>{_nodata_text(nodata)}</NoDataValue>")
        parts.append(f"<SimpleSource>{source}<SourceBand>{b + 1}</SourceBand>{window}</SimpleSource></VRTRasterBand>")
    parts.append("</VRTDataset>")
    return "\n".join(parts)


def _nodata_text(value):
    value = float(value)
    if value != value:
        return "nan"
    return repr(value)


def mask_raster(mask, rows, cols):
    """A VirtualRaster of a (rows, cols) mask, non-zero where pixels are valid."""
    mask = np.asarray(mask)
    if mask.shape != (rows, cols):
        raise RequestError(f"the mask has shape {mask.shape}; the array has {rows} rows and {cols} columns")
    if mask.dtype == np.bool_:
        mask = mask.view(np.uint8)
    elif mask.dtype != np.uint8:
        mask = (mask != 0).view(np.uint8)
    return VirtualRaster(mask[np.newaxis])


class Enlarged:
    """A context in which ``path`` names a width x height raster of which a
    run's working copy is exactly ``small`` (a VirtualRaster of the picked
    pixels): every full-size pixel repeats its nearest picked one, so the
    nearest-neighbour reduced read lands on the picked pixels themselves.
    Nothing of the full size is held anywhere."""

    def __init__(self, small, width, height, transform=None, crs=None, nodata=None, descriptions=None):
        self.small = small
        self.path = small.path[: -len("array.vrt")] + "enlarged.vrt"
        bands, rows, cols = small.data.shape
        source = f'<SourceFilename relativeToVRT="0">{small.path}</SourceFilename>'
        window = (f'<SrcRect xOff="0" yOff="0" xSize="{cols}" ySize="{rows}"/>'
                  f'<DstRect xOff="0" yOff="0" xSize="{width}" ySize="{height}"/>')
        self._xml = _vrt(width, height, small.data.dtype, bands, source, window, transform, crs, nodata, descriptions)

    def __enter__(self):
        self.small.__enter__()
        _isodata.write_text(self.path, self._xml)
        return self

    def __exit__(self, *exc):
        _isodata.unlink(self.path)
        return self.small.__exit__(*exc)

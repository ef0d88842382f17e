"""What a scene given to the package is: a numpy array, an xarray
DataArray or a Dask array, taken apart into (bands, rows, cols) pixels and
their georeferencing, and the labels put back into the same kind."""
import numpy as np


def _is_dask(array):
    return type(array).__module__.split(".")[0] == "dask"


def _is_xarray(obj):
    return type(obj).__module__.split(".")[0] == "xarray"


class Scene:
    """pixels: (bands, rows, cols), numpy or Dask; transform, crs, nodata and
    descriptions: what a raster of it would declare (None where unknown)."""

    def __init__(self, X):
        self.source = X
        self.transform = self.crs = self.nodata = self.descriptions = None
        if _is_xarray(X):
            self._from_xarray(X)
        else:
            self.pixels = X if _is_dask(X) else np.asarray(X)
            if self.pixels.ndim == 2:  # one band
                self.pixels = self.pixels[np.newaxis]
        self.lazy = _is_dask(self.pixels)

    def _from_xarray(self, X):
        if X.ndim != 3:
            from ._errors import RequestError

            raise RequestError(f"the DataArray has dimensions {X.dims}; expected a band dimension and two of space")
        band = "band" if "band" in X.dims else X.dims[0]
        spatial = [d for d in X.dims if d != band]
        X = X.transpose(band, *spatial)  # a view; the bands go first
        self.band_dim, self.spatial_dims = band, spatial
        self.pixels = X.data
        values = X[band].values if band in X.coords else None
        if values is not None and values.dtype.kind in "US":
            self.descriptions = [str(v) for v in values]
        try:
            import rioxarray  # noqa: F401  (the .rio accessor)

            if X.rio.crs is not None:
                self.crs = X.rio.crs.to_wkt()
            if X.rio.crs is not None or "transform" in X.attrs or X.rio.x_dim in X.coords:
                a = X.rio.transform()
                self.transform = (a.c, a.a, a.b, a.f, a.d, a.e)
            self.nodata = X.rio.nodata
        except (ImportError, Exception):  # no rioxarray, or coordinates it cannot read
            pass

    @property
    def shape(self):
        return tuple(self.pixels.shape)

    def wrap(self, labels):
        """labels (rows, cols) as the scene came: an ndarray, or a DataArray
        with the scene's spatial coordinates, attributes and CRS."""
        if not _is_xarray(self.source):
            return labels
        import xarray as xr

        X = self.source
        coords = {name: c for name, c in X.coords.items() if self.band_dim not in c.dims}
        out = xr.DataArray(labels, dims=self.spatial_dims, coords=coords, attrs=dict(X.attrs), name="classes")
        for key in ("long_name", "scale_factor", "add_offset", "_FillValue", "units"):
            out.attrs.pop(key, None)
        out.attrs["long_name"] = "class (0 unclassified or left out, 1..K)"
        try:
            import rioxarray  # noqa: F401

            if X.rio.crs is not None:
                out = out.rio.write_crs(X.rio.crs)
        except ImportError:
            pass
        return out

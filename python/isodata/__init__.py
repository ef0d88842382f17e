"""ISODATA unsupervised classification of multi-band rasters, for numpy,
xarray and Dask, and of raster files, by the same runs as the ``isodata``
command.

>>> import isodata
>>> model = isodata.ISODATA(n_classes=8).fit(pixels)      # (bands, rows, cols)
>>> model.labels_                                          # 0 left out, 1..K classes
>>> model.predict(other_pixels)                            # as isodata -apply
>>> isodata.classify("scene.tif", "classes.tif", format="GTiff")

Labels are the class raster's numbers: 0 is unclassified or left out, the
classes are 1..K (not 0-based, no -1).
"""
from ._errors import Error, PreviewWarning, RequestError, RunError, RunWarning
from ._estimator import ISODATA, load
from ._files import apply, classify, options
from ._isodata import gdal_version as _gdal_version
from ._isodata import version as _version

__version__ = _version().split()[1]

__all__ = ["ISODATA", "load", "classify", "apply", "options", "Error", "RequestError", "RunError",
           "RunWarning", "PreviewWarning"]

"""Fixtures of the Python package's tests: the sample scene as an array, and
the command, whose results the package must give to the byte."""
import json
import os
import subprocess

import numpy as np
import pytest
from osgeo import gdal

gdal.UseExceptions()

SAMPLE = os.environ.get("ISODATA_SAMPLE_SCENE", "")
COMMAND = os.environ.get("ISODATA_COMMAND", "isodata")


@pytest.fixture(scope="session")
def sample_path():
    if not os.path.isfile(SAMPLE):
        pytest.skip("the sample scene is not in data/ (scripts/fetch-sample.sh fetches it)")
    return SAMPLE


@pytest.fixture(scope="session")
def sample(sample_path):
    return gdal.Open(sample_path).ReadAsArray()


def command(*words, check=True):
    """Runs the command with -json; (exit status, summary or error object)."""
    done = subprocess.run([COMMAND, "-q", "-json", *map(str, words)], capture_output=True, text=True)
    if check and done.returncode != 0:
        raise AssertionError(f"isodata {' '.join(map(str, words))} failed: {done.stderr}")
    return done.returncode, json.loads(done.stdout) if done.stdout.strip() else None


def classes_of(path):
    """The one band of a class raster as uint8."""
    return gdal.Open(str(path)).ReadAsArray()


def write_tif(path, pixels, nodata=None, geotransform=(500000.0, 30.0, 0.0, 4200000.0, 0.0, -30.0)):
    """A GeoTIFF holding pixels (bands, rows, cols) exactly."""
    bands, rows, cols = pixels.shape
    kind = gdal.GetDataTypeByName({np.dtype(t): n for t, n in [
        (np.uint8, "Byte"), (np.uint16, "UInt16"), (np.int16, "Int16"), (np.uint32, "UInt32"),
        (np.int32, "Int32"), (np.float32, "Float32"), (np.float64, "Float64")]}[pixels.dtype])
    ds = gdal.GetDriverByName("GTiff").Create(str(path), cols, rows, bands, kind)
    ds.SetGeoTransform(geotransform)
    for b in range(bands):
        band = ds.GetRasterBand(b + 1)
        if nodata is not None:
            band.SetNoDataValue(nodata)
        band.WriteArray(pixels[b])
    ds = None
    return path


def without_times(summary):
    return {k: v for k, v in summary.items() if k not in ("seconds", "input", "output", "space")}

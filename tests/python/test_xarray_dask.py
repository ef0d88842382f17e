"""xarray scenes keep their coordinates and CRS; Dask scenes stay lazy and
bounded, fitted from the working copy's own pixels, and labelled chunk by
chunk on a cluster of processes to the whole scene's bytes."""
import os

import numpy as np
import pytest
from osgeo import gdal

import isodata
from conftest import classes_of, command

da = pytest.importorskip("dask.array")
xr = pytest.importorskip("xarray")


def test_predict_on_a_dataarray_keeps_its_coordinates_attributes_and_crs(sample_path):
    rioxarray = pytest.importorskip("rioxarray")
    scene = rioxarray.open_rasterio(sample_path)
    fitted = isodata.ISODATA().fit(scene, progress=False)
    labels = fitted.predict(scene, progress=False)
    assert labels.dims == ("y", "x") and labels.dtype == np.uint8
    np.testing.assert_array_equal(labels.x, scene.x)
    np.testing.assert_array_equal(labels.y, scene.y)
    assert labels.rio.crs == scene.rio.crs and labels.rio.transform() == scene.rio.transform()
    # Georeferenced, the classes have areas: pixels times the pixel's area.
    np.testing.assert_allclose(fitted.class_areas_, fitted.class_pixels_ * abs(scene.rio.resolution()[0] *
                                                                            scene.rio.resolution()[1]))


@pytest.mark.parametrize("width, height", [(349, 352), (5003, 5001), (97, 101)])
def test_the_working_copy_picks_are_the_pixels_of_gdals_reduced_read(width, height):
    # Band 1 holds each pixel's column, band 2 its row.
    mem = gdal.GetDriverByName("MEM").Create("", width, height, 2, gdal.GDT_UInt16)
    mem.GetRasterBand(1).WriteArray(np.tile(np.arange(width, dtype=np.uint16), (height, 1)))
    mem.GetRasterBand(2).WriteArray(np.tile(np.arange(height, dtype=np.uint16)[:, None], (1, width)))
    rows, cols = isodata._isodata.working_copy_picks(width, height)
    read = mem.ReadAsArray(buf_xsize=len(cols), buf_ysize=len(rows))
    assert read[0, 0].tolist() == cols and read[1, :, 0].tolist() == rows


@pytest.mark.parametrize("masked", [False, True], ids=["unmasked", "masked"])
def test_a_lazy_fit_equals_the_in_memory_fit_and_stays_lazy(sample, masked):
    mask = None
    if masked:
        y, x = np.mgrid[0:sample.shape[1], 0:sample.shape[2]]
        mask = (x - 170) ** 2 + (y - 160) ** 2 > 60 ** 2
    whole = isodata.ISODATA().fit(sample, mask=mask, progress=False)
    lazy = isodata.ISODATA().fit(da.from_array(sample, chunks=(2, 97, 83)),
                                 mask=None if mask is None else da.from_array(mask, chunks=50), progress=False)
    np.testing.assert_array_equal(lazy.cluster_centers_, whole.cluster_centers_)
    assert isinstance(lazy.labels_, da.Array)
    assert lazy.labels_.compute().tobytes() == whole.labels_.tobytes()
    np.testing.assert_array_equal(lazy.class_pixels_, whole.class_pixels_)
    np.testing.assert_allclose(lazy.class_means_, whole.class_means_, rtol=1e-12)
    np.testing.assert_allclose(lazy.class_stddevs_, whole.class_stddevs_, rtol=1e-9)
    assert lazy.excluded_["pixels"] == whole.excluded_["pixels"]


def test_a_dask_cluster_of_two_processes_labels_chunks_as_apply_labels_the_scene(sample, sample_path, tmp_path):
    distributed = pytest.importorskip("distributed")
    _, _ = command("-model-out", tmp_path / "m.json", sample_path, tmp_path / "fit.img")
    command("-apply", tmp_path / "m.json", sample_path, tmp_path / "whole.img")
    model = isodata.load(tmp_path / "m.json")
    chunks = da.from_array(sample, chunks=(3, 61, 47))  # odd chunks, the bands split too
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                                  dashboard_address=None) as cluster, distributed.Client(cluster) as client:
        labels = model.predict(chunks).compute()
        executed = client.run(lambda dask_worker: (os.getpid(), dask_worker.state.executed_count))
    assert labels.tobytes() == classes_of(tmp_path / "whole.img").tobytes()
    pids = {pid for pid, count in executed.values() if count > 0}
    assert len(pids) == 2 and os.getpid() not in pids

"""The estimator gives the command's classes: a fit on an array is the run on
a GeoTIFF of the same pixels, predict is -apply, for every pixel type and
with nodata, NaN and masks left out as the command leaves them out."""
import pickle

import numpy as np
import pytest

import isodata
from conftest import classes_of, command, write_tif


def model_centres(model):
    return np.array([[float.fromhex(h) for h in c["centre_hex"]] for c in model["classes"]])


def test_fit_on_the_sample_scene_is_the_command_on_its_file(sample, sample_path, tmp_path):
    _, summary = command("-model-out", tmp_path / "m.json", sample_path, tmp_path / "c.img")
    fitted = isodata.ISODATA().fit(sample, progress=False)
    expected = classes_of(tmp_path / "c.img")
    assert fitted.labels_.dtype == np.uint8 and fitted.labels_.tobytes() == expected.tobytes()
    import json
    model = json.loads((tmp_path / "m.json").read_text())
    assert fitted.cluster_centers_.dtype == np.float32
    np.testing.assert_array_equal(fitted.cluster_centers_.astype(np.float64), model_centres(model))
    assert fitted.n_classes_ == len(summary["classes"])
    assert fitted.class_pixels_.tolist() == [c["pixels"] for c in summary["classes"]]
    np.testing.assert_array_equal(fitted.class_means_, [c["mean"] for c in summary["classes"]])
    np.testing.assert_array_equal(fitted.class_stddevs_, [c["stddev"] for c in summary["classes"]])
    assert fitted.summary_["unclassified_by"] == summary["unclassified_by"]


def scene(dtype, rows=90, cols=120):
    """Three bands of four land covers with texture, a nodata border and, for
    the real types, NaN here and there."""
    y, x = np.mgrid[0:rows, 0:cols]
    cover = (x // 30 + 2 * (y // 45)) % 4
    pixels = np.stack([cover * 40 + b * 9 + (x * 7 + y * 3 + b) % 11 for b in range(3)]).astype(np.float64)
    pixels[:, :6, :] = 7  # the nodata border
    if np.issubdtype(np.dtype(dtype), np.signedinteger):
        pixels -= 60
    pixels = pixels.astype(dtype)
    if np.issubdtype(np.dtype(dtype), np.floating):
        pixels[1, (x * 5 + y) % 37 == 0] = np.nan
    return pixels


PIXEL_TYPES = [np.uint8, np.uint16, np.int16, np.uint32, np.int32, np.float32, np.float64]


@pytest.mark.parametrize("dtype", PIXEL_TYPES, ids=lambda t: np.dtype(t).name)
def test_every_pixel_type_fits_and_predicts_as_the_command(dtype, tmp_path):
    pixels = scene(dtype)
    nodata = -53 if np.issubdtype(np.dtype(dtype), np.signedinteger) else 7
    mask = np.ones(pixels.shape[1:], dtype=bool)
    mask[40:50, 60:90] = False
    mask_path = write_tif(tmp_path / "mask.tif", mask[np.newaxis].astype(np.uint8))
    tif = write_tif(tmp_path / "scene.tif", pixels)
    options = ["-classes", 5, "-min-size", 5, "-srcnodata", nodata, "-mask", mask_path]
    _, summary = command(*options, "-model-out", tmp_path / "m.json", tif, tmp_path / "c.img")
    fitted = isodata.ISODATA(n_classes=5, min_size=5, nodata=nodata).fit(pixels, mask=mask, progress=False)
    assert fitted.labels_.tobytes() == classes_of(tmp_path / "c.img").tobytes()
    assert fitted.excluded_ == summary["excluded"] and summary["excluded"]["pixels"] > 0
    assert fitted.class_pixels_.tolist() == [c["pixels"] for c in summary["classes"]]

    other = np.ascontiguousarray(pixels[:, ::-1, :])  # other pixels, the same classes
    other_tif = write_tif(tmp_path / "other.tif", other)
    command("-apply", tmp_path / "m.json", "-srcnodata", nodata, other_tif, tmp_path / "o.img")
    predicted = isodata.load(tmp_path / "m.json").predict(other, progress=False)
    assert predicted.tobytes() == classes_of(tmp_path / "o.img").tobytes()


def test_arrays_in_any_positive_stride_layout_are_read_in_place(sample):
    interleaved = np.ascontiguousarray(sample.transpose(1, 2, 0)).transpose(2, 0, 1)
    window = interleaved[:, 20:300, 10:333]
    for array in (sample, interleaved, window):
        assert isodata._arrays.VirtualRaster(array).data is array
    whole = isodata.ISODATA().fit(interleaved, progress=False)
    assert whole.labels_.tobytes() == isodata.ISODATA().fit(sample, progress=False).labels_.tobytes()
    part = isodata.ISODATA().fit(window, progress=False)
    assert part.labels_.tobytes() == isodata.ISODATA().fit(np.ascontiguousarray(window), progress=False).labels_.tobytes()
    flipped = sample[:, ::-1]
    assert isodata._arrays.VirtualRaster(flipped).data is not flipped  # copied once: GDAL takes no negative step


def test_parameters_follow_the_estimator_protocol():
    model = isodata.ISODATA(n_classes=6, std=4.5)
    assert repr(model) == "ISODATA(n_classes=6, std=4.5)"
    params = model.get_params()
    assert params["n_classes"] == 6 and params["initial"] == isodata.options()["initial"]["default"]
    again = type(model)(**params)
    assert again.get_params() == params
    assert model.set_params(max_iter=3) is model and model.max_iter == 3
    with pytest.raises(ValueError, match="invalid parameter"):
        model.set_params(classes=3)
    try:
        from sklearn.base import clone
    except ImportError:
        return
    assert clone(model).get_params() == model.get_params()


def test_a_model_travels_by_file_and_by_pickle(sample, tmp_path):
    fitted = isodata.ISODATA(n_classes=6).fit(sample, progress=False)
    fitted.save(tmp_path / "m.json")
    loaded = isodata.load(tmp_path / "m.json")
    assert loaded.n_classes == 6 and loaded.model_json_ == fitted.model_json_
    np.testing.assert_array_equal(loaded.cluster_centers_, fitted.cluster_centers_)
    unpickled = pickle.loads(pickle.dumps(fitted))
    for model in (loaded, unpickled):
        assert model.predict(sample, progress=False).tobytes() == fitted.labels_.tobytes()


@pytest.mark.parametrize("make, message", [
    (lambda s: s[np.newaxis], "dimension"),
    (lambda s: s.astype(np.int64), "int64"),
    (lambda s: np.full(s.shape, np.nan, np.float32), "every pixel of the array is left out"),
])
def test_a_request_that_cannot_run_is_a_value_error_with_the_message(sample, make, message):
    with pytest.raises(isodata.RequestError, match=message) as caught:
        isodata.ISODATA().fit(make(sample), progress=False)
    assert isinstance(caught.value, ValueError) and isinstance(caught.value, isodata.Error)


def test_one_band_may_come_as_rows_and_columns(sample):
    one = isodata.ISODATA(n_classes=4).fit(sample[3], progress=False)
    assert one.labels_.tobytes() == isodata.ISODATA(n_classes=4).fit(sample[3:4], progress=False).labels_.tobytes()
    assert one.cluster_centers_.shape == (one.n_classes_, 1)


def test_a_model_of_other_bands_and_a_mask_of_another_size_are_refused(sample):
    fitted = isodata.ISODATA().fit(sample, progress=False)
    with pytest.raises(isodata.RequestError, match="band") as caught:
        fitted.predict(sample[:4], progress=False)
    assert "/vsimem" not in str(caught.value)
    with pytest.raises(isodata.RequestError, match="mask"):
        isodata.ISODATA().fit(sample, mask=np.ones((10, 10), bool), progress=False)
    with pytest.raises(isodata.RequestError, match="^n_classes 300 is out of range: between 1 and 255"):
        isodata.ISODATA(n_classes=300).fit(sample, progress=False)


def jeffries_matusita(mean_a, cov_a, mean_b, cov_b):
    s = (cov_a + cov_b) / 2
    d = mean_a - mean_b
    b = d @ np.linalg.solve(s, d) / 8 + 0.5 * np.log(np.linalg.det(s) / np.sqrt(np.linalg.det(cov_a) * np.linalg.det(cov_b)))
    return 2 * (1 - np.exp(-b))


def test_separability_is_the_jeffries_matusita_distance_of_the_classes_full_size_pixels(sample):
    fitted = isodata.ISODATA().fit(sample, progress=False)
    found = fitted.separability_
    assert found["measure"] == "Jeffries-Matusita distance"
    values = sample.reshape(sample.shape[0], -1).astype(np.float64)
    labels = fitted.labels_.ravel()
    stats = []
    for k in range(1, fitted.n_classes_ + 1):
        members = values[:, labels == k]
        stats.append((members.mean(axis=1), np.cov(members, bias=True)))
    expected = np.zeros((fitted.n_classes_,) * 2)
    for i, (mi, ci) in enumerate(stats):
        for j, (mj, cj) in enumerate(stats):
            if i != j:
                expected[i, j] = jeffries_matusita(mi, ci, mj, cj)
    np.testing.assert_allclose(found["matrix"], expected, rtol=1e-9, atol=0)
    assert fitted.summary_["separability"]["matrix"] == found["matrix"].tolist()

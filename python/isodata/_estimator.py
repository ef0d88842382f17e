"""The ISODATA estimator: fit finds classes in a scene held as an array,
predict labels a scene with them, both by the very runs of the command
(``isodata`` and ``isodata -apply``) on a raster that reads the array in
place.

fit:     the scene as a virtual raster -> a run with a model file -> the
         labels, the model's centres and figures, the summary.
lazy:    a Dask-backed scene gives only its working copy's pixels (gathered
         from the chunks); the run clusters them and predict labels the
         chunks, so nothing of the full size is ever held.
predict: the model file and the scene -> a labelling run; chunk by chunk,
         one thread each, for a Dask-backed scene.
"""
import contextlib
import json
import os
import tempfile

import numpy as np

from . import _command, _isodata, _options
from ._arrays import DTYPES, Enlarged, VirtualRaster, check_pixels, mask_raster
from ._errors import RequestError
from ._scene import Scene

#: The estimator's parameters, in the order of its signature.
PARAMETERS = ("n_classes", "initial", "min_size", "merge_pairs", "max_iter", "std", "merge_dist",
              "bands", "nodata", "plain", "threads", "mem", "tmpdir")
_ARRAY, _MASK, _MODEL = "the array", "the mask", "the model"


@contextlib.contextmanager
def _workspace(tmpdir):
    """A private folder for the run's files (and its run folder)."""
    with tempfile.TemporaryDirectory(prefix="isodata-", dir=tmpdir) as folder:
        yield folder


def _mask(mask, rows, cols):
    if mask is None:
        return contextlib.nullcontext(None)
    return mask_raster(np.asarray(mask), rows, cols)


def _read_labels(path, rows, cols):
    return np.fromfile(path, dtype=np.uint8).reshape(rows, cols)


def _names(raster, mask, model=None):
    names = {} if model is None else {f"-apply '{model}': ": ""}
    names[raster.path] = _ARRAY
    if mask is not None:
        names[mask.path] = _MASK
    if model is not None:
        names[model] = _MODEL
    return names


def label_pixels(model_json, pixels, nodata=None, descriptions=None, mask=None, threads=None, progress=None,
                 tmpdir=None):
    """Labels (bands, rows, cols) pixels with a model file's classes, as
    ``isodata -apply``: (labels, the run's summary)."""
    check_pixels(pixels)
    _, rows, cols = pixels.shape
    with _workspace(tmpdir) as folder, VirtualRaster(pixels, nodata=nodata, descriptions=descriptions) as raster, \
            _mask(mask, rows, cols) as m:
        model = os.path.join(folder, "model.json")
        with open(model, "w", encoding="utf-8") as f:
            f.write(model_json)
        out = os.path.join(folder, "classes")
        words = ["-apply", model] + _options.words({"threads": threads}) + (["-mask", m.path] if m else [])
        summary = _command.run(words + [raster.path, out], progress, _names(raster, m, model))
        return _read_labels(out, rows, cols), summary


def _label_block(block, model_json, nodata, descriptions, mask=None):
    # One chunk inside a Dask task: one thread, no progress, nothing shared.
    return label_pixels(model_json, block, nodata, descriptions, None if mask is None else mask[0], threads=1,
                        progress=False)[0]


def _figures(labels, pixels, classes):
    """Per class: pixels, sum and sum of squares of every band, as float64."""
    labels = labels.ravel()
    out = np.zeros((3, classes + 1, pixels.shape[0]))
    out[0] = np.bincount(labels, minlength=classes + 1)[:, None]
    for b in range(pixels.shape[0]):
        values = pixels[b].ravel().astype(np.float64)
        out[1, :, b] = np.bincount(labels, values, minlength=classes + 1)
        out[2, :, b] = np.bincount(labels, values * values, minlength=classes + 1)
    return out[np.newaxis]


class ISODATA:
    """ISODATA unsupervised classification, with scikit-learn's conventions.

    Parameters
    ----------
    n_classes : int
        Classes wanted (1..255).
    initial : int
        Cluster centres to start from (1..255).
    min_size : int
        Clusters with fewer pixels of the working copy are dropped.
    merge_pairs : int
        Most cluster pairs merged in one step.
    max_iter : int
        Iterations.
    std : float
        A cluster whose largest band standard deviation exceeds this may split.
    merge_dist : float
        Centres closer than this (Euclidean, pixel values) may merge.
    bands : list of int, optional
        1-based bands of the scene to classify; None: every band.
    nodata : float, list of float or "None", optional
        Nodata value of the bands (one, or one a band), replacing what the
        scene declares; "None" ignores declared nodata, NaN and infinities.
        None: the scene's own (an xarray's ``rio.nodata``); NaN and
        infinities are left out either way.
    plain : bool
        The plug-in's plain run: zero sums stay unclassified, no nodata or
        mask is looked at.
    threads : int or "ALL_CPUS"
        Threads a run shares its passes out to; the result is the same for
        every count.
    mem : int, optional
        Megabytes the working copy may take in memory; None: a quarter of
        the physical memory.
    tmpdir : str, optional
        Where a run's files go while it runs; None: the system's.

    Every default is the command's (``isodata --options-json``).

    Attributes
    ----------
    cluster_centers_ : ndarray of shape (n_classes_, n_bands)
        The centres as the engine holds them, in its pixel type.
    n_classes_ : int
        Classes found.
    labels_ : ndarray of uint8, xarray.DataArray or dask array, shape (rows, cols)
        The class raster of the fitted scene: **0 is unclassified or left
        out (nodata, NaN, mask), 1..K are the classes** -- the numbering of
        the class raster, the model file and every other host, not
        scikit-learn's 0-based labels with -1 for noise.
    class_pixels_, class_areas_ : ndarray of shape (n_classes_,)
        Full-size pixels of each class, and their area in map units (NaN
        without a geotransform).
    class_means_, class_stddevs_ : ndarray of shape (n_classes_, n_bands)
        Per class and band, the mean and standard deviation (over n) of the
        class's full-size pixels (NaN for a class without pixels).
    excluded_ : dict
        Pixels left out, ``{"pixels": n, "by": {rule: n}}``.
    history_ : list of dict
        What each round of the clustering did, as the ``-json`` summary's
        ``iterations``: the step (``"split"``, ``"merge"``, ``"removed"``,
        ``"none"``), the cluster split or the pairs merged, the small
        clusters dropped, the clusters after it and the overall mean
        distance.
    summary_ : dict or None
        The run's ``-json`` summary (None after :func:`load`).
    model_json_ : str
        The model file's text, as :meth:`save` writes it.

    Notes
    -----
    fit copies no pixel of a numpy scene: C-ordered, band-interleaved
    (``(rows, cols, bands)`` transposed) and any array of positive strides
    are read in place; only arrays with negative strides are copied once.
    The run itself holds a working copy of 4 bytes a band for every pixel
    of the reduced scene (a quarter of the pixels of scenes over 100 pixels
    a side, a sixteenth beyond 5000) within ``mem``, and writes the class
    raster (one byte a pixel) to ``tmpdir``.
    """

    def __init__(self, n_classes=_options.default("n_classes"), initial=_options.default("initial"),
                 min_size=_options.default("min_size"), merge_pairs=_options.default("merge_pairs"),
                 max_iter=_options.default("max_iter"), std=_options.default("std"),
                 merge_dist=_options.default("merge_dist"), bands=None, nodata=None,
                 plain=_options.default("plain"), threads=_options.default("threads"), mem=None, tmpdir=None):
        self.n_classes = n_classes
        self.initial = initial
        self.min_size = min_size
        self.merge_pairs = merge_pairs
        self.max_iter = max_iter
        self.std = std
        self.merge_dist = merge_dist
        self.bands = bands
        self.nodata = nodata
        self.plain = plain
        self.threads = threads
        self.mem = mem
        self.tmpdir = tmpdir

    # -- scikit-learn's estimator protocol ---------------------------------
    def get_params(self, deep=True):
        """The parameters, as passed to the constructor."""
        return {name: getattr(self, name) for name in PARAMETERS}

    def set_params(self, **params):
        """Sets parameters by name; returns the estimator."""
        for name, value in params.items():
            if name not in PARAMETERS:
                raise ValueError(f"invalid parameter {name!r} for ISODATA; valid ones are {', '.join(PARAMETERS)}")
            setattr(self, name, value)
        return self

    def __repr__(self):
        changed = [f"{n}={getattr(self, n)!r}" for n in PARAMETERS
                   if getattr(self, n) != (None if n in ("bands", "nodata", "mem", "tmpdir") else _options.default(n))]
        return f"ISODATA({', '.join(changed)})"

    def _settings(self):
        return {name: getattr(self, name) for name in PARAMETERS if name != "tmpdir"}

    def _fitted(self):
        if not hasattr(self, "model_json_"):
            raise RequestError("this ISODATA is not fitted yet: call fit or isodata.load first")

    # -- fitting -----------------------------------------------------------
    def fit(self, X, y=None, *, mask=None, progress=None):
        """Finds the classes of a scene.

        Parameters
        ----------
        X : ndarray, xarray.DataArray or dask array of shape (bands, rows, cols)
            uint8, uint16, int16, uint32, int32, float32 or float64; one
            band may come as (rows, cols). A
            DataArray has its band dimension named ``band`` (else first);
            its coordinates, CRS and nodata value (rioxarray) are kept.
        y : ignored
        mask : array-like of shape (rows, cols), optional
            Non-zero where pixels are valid, as the command's ``-mask``.
        progress : None, bool or callable, optional
            None: a progress bar where a person watches (a terminal or a
            notebook, with tqdm); False: none; a callable gets (overall
            percent, stage text) from a helper thread.

        Returns
        -------
        self
        """
        scene = Scene(X)
        if scene.lazy:
            return self._fit_lazy(scene, mask, progress)
        check_pixels(scene.pixels)
        _, rows, cols = scene.shape
        with _workspace(self.tmpdir) as folder, \
                VirtualRaster(scene.pixels, scene.transform, scene.crs, scene.nodata, scene.descriptions) as raster, \
                _mask(mask, rows, cols) as m:
            model, out = os.path.join(folder, "model.json"), os.path.join(folder, "classes")
            # The fit's report, when the charting library it embeds is installed.
            page = os.path.join(folder, "report.html") if _isodata.chart_library_path() else None
            words = _options.words(self._settings()) + ["-model-out", model] + (["-report", page] if page else [])
            words += ["-mask", m.path] if m else []
            summary = _command.run(words + [raster.path, out], progress, _names(raster, m))
            labels = _read_labels(out, rows, cols)
            with open(model, encoding="utf-8") as f:
                self._take_model(f.read())
            self._report_html = None
            if page:
                with open(page, encoding="utf-8") as f:
                    self._report_html = f.read().replace(raster.path, _ARRAY)
        self.summary_ = summary
        self.excluded_ = summary["excluded"]
        self.history_ = summary["iterations"]
        self.labels_ = scene.wrap(labels)
        return self

    @property
    def separability_(self):
        """How well every pair of classes separates: ``{"measure": name,
        "matrix": (n_classes_, n_classes_) ndarray}`` (the Jeffries-Matusita
        distance, 0 to 2; NaN where a class's covariance is singular), as
        the model file records it; None when it was not measured."""
        self._fitted()
        found = json.loads(self.model_json_).get("separability")
        if not found:
            return None
        matrix = np.array([[np.nan if v is None else v for v in row] for row in found["matrix"]], dtype=np.float64)
        return {"measure": found["measure"], "matrix": matrix}

    def _fit_lazy(self, scene, mask, progress):
        """A Dask-backed scene: the run clusters the working copy gathered
        from the chunks; labels_ stays lazy, the figures take one pass."""
        pixels = scene.pixels
        check_pixels(pixels)
        _, rows, cols = scene.shape
        pick_rows, pick_cols = _isodata.working_copy_picks(cols, rows)
        small = np.asarray(pixels[:, pick_rows, :][:, :, pick_cols].compute())
        small_mask = None if mask is None else np.asarray(mask[pick_rows][:, pick_cols])
        with _workspace(self.tmpdir) as folder, \
                Enlarged(VirtualRaster(small, nodata=scene.nodata, descriptions=scene.descriptions), cols, rows,
                         scene.transform, scene.crs, scene.nodata, scene.descriptions) as raster, \
                _enlarged_mask(small_mask, cols, rows) as m:
            model, out = os.path.join(folder, "model.json"), os.path.join(folder, "classes")
            words = _options.words(self._settings()) + ["-model-out", model] + (["-mask", m.path] if m else [])
            summary = _command.run(words + [raster.path, out], progress, _names(raster, m))
            with open(model, encoding="utf-8") as f:
                self._take_model(f.read())
        self.history_ = summary["iterations"]  # the clustering saw the working copy's pixels only
        labels = self._predict_lazy(scene, mask)
        self._figures_from(labels, scene, mask)
        self.summary_ = None
        self._report_html = None  # the run saw an enlarged working copy, not the scene
        self.labels_ = scene.wrap(labels)
        return self

    def _figures_from(self, labels, scene, mask):
        """Counts, means and deviations of a lazily labelled scene, gathered
        block by block (in float64: to rounding, the labelling pass's)."""
        import dask

        pixels = scene.pixels.rechunk({0: -1})
        k = self.n_classes_
        parts = [dask.delayed(_figures)(labels.blocks[i, j], pixels.blocks[0, i, j], k)
                 for i in range(labels.numblocks[0]) for j in range(labels.numblocks[1])]
        sums = np.sum([p[0] for p in dask.compute(*parts)], axis=0)
        n = sums[0, :, 0]
        with np.errstate(invalid="ignore", divide="ignore"):
            mean = sums[1] / n[:, None]
            std = np.sqrt(np.maximum(sums[2] / n[:, None] - mean * mean, 0.0))
        model = json.loads(self.model_json_)
        area = model.get("pixel_area")
        for c, entry in enumerate(model["classes"], start=1):
            entry["pixels"] = int(n[c])
            entry["area"] = None if area is None else n[c] * area
            entry["mean"] = None if n[c] == 0 else [float(v) for v in mean[c]]
            entry["stddev"] = None if n[c] == 0 else [float(v) for v in std[c]]
        self._take_model(json.dumps(model, indent=2))
        # Without the plain rules every valid pixel takes a class: 0 means left out.
        self.excluded_ = {"pixels": None if self.plain else int(n[0]), "by": None}

    def _take_model(self, model_json):
        """The fitted attributes from a model file's text."""
        model = json.loads(model_json)
        classes = model["classes"]
        dtype = DTYPES.get(model.get("engine_pixel_type"), np.dtype(np.float64))
        centres = [[float.fromhex(h) for h in c["centre_hex"]] if "centre_hex" in c else c["centre"] for c in classes]
        bands = len(model["input"]["bands"])
        self.model_json_ = model_json
        self.cluster_centers_ = np.array(centres, dtype=np.float64).reshape(len(classes), bands).astype(dtype)
        self.n_classes_ = len(classes)
        self.bands_ = [b["band"] for b in model["input"]["bands"]]
        self.class_names_ = [c.get("name", "") for c in classes]
        self.class_colours_ = np.array([c.get("colour") or [0, 0, 0] for c in classes], dtype=np.uint8)
        self.class_pixels_ = np.array([c.get("pixels", 0) for c in classes], dtype=np.int64)
        nan = float("nan")
        self.class_areas_ = np.array([nan if c.get("area") is None else c["area"] for c in classes], dtype=np.float64)
        self.class_means_ = np.array([c.get("mean") or [nan] * bands for c in classes], dtype=np.float64)
        self.class_stddevs_ = np.array([c.get("stddev") or [nan] * bands for c in classes], dtype=np.float64)
        self.pixel_area_ = model.get("pixel_area")

    # -- labelling ---------------------------------------------------------
    def predict(self, X, *, mask=None, progress=None):
        """Labels a scene with the fitted classes, exactly as ``isodata -apply``.

        numpy in, numpy out; a DataArray in, a DataArray out with its
        spatial coordinates, attributes and CRS; a Dask-backed scene in, a
        lazy Dask array out, labelled chunk by chunk (rows and columns keep
        their chunks; the bands are joined into one chunk where split).

        Returns
        -------
        labels : uint8 of shape (rows, cols)
            0 unclassified or left out, 1..n_classes_ the classes.
        """
        self._fitted()
        scene = Scene(X)
        if scene.lazy:
            return scene.wrap(self._predict_lazy(scene, mask))
        labels, _ = label_pixels(self.model_json_, scene.pixels, scene.nodata, scene.descriptions, mask=mask,
                                 threads=self.threads, progress=progress, tmpdir=self.tmpdir)
        return scene.wrap(labels)

    def _predict_lazy(self, scene, mask):
        import dask.array as da

        pixels = scene.pixels
        check_pixels(pixels)
        pixels = pixels.rechunk({0: -1})
        masks = []
        if mask is not None:
            if tuple(mask.shape) != pixels.shape[1:]:
                raise RequestError(f"the mask has shape {tuple(mask.shape)}; the array has {pixels.shape[1]} rows "
                                   f"and {pixels.shape[2]} columns")
            masks = [da.asarray(mask).rechunk(pixels.chunks[1:])[np.newaxis]]
        return da.map_blocks(_label_block, pixels, self.model_json_, scene.nodata, scene.descriptions, *masks,
                             drop_axis=0, dtype=np.uint8, meta=np.empty((0, 0), dtype=np.uint8))

    def fit_predict(self, X, y=None, **kwargs):
        """fit, then the fitted scene's labels."""
        return self.fit(X, **kwargs).labels_

    # -- the report --------------------------------------------------------
    def report(self, path):
        """Writes the fit's HTML report, the page ``isodata -report`` writes:
        the run, the class map, spectral signatures, areas, convergence and
        separability, in one file that opens offline."""
        self._fitted()
        if not getattr(self, "_report_html", None):
            raise RequestError("there is no report of this fit: a fit on a Dask-backed scene, a model loaded "
                               "from a file, or a fit where the charting library (Debian's libjs-chart.js) is not "
                               "installed has none (isodata.classify(..., report=...) writes one for a file)")
        with open(path, "w", encoding="utf-8") as f:
            f.write(self._report_html)

    def _repr_html_(self):
        """In a notebook: the classes in a small table, and the report's page."""
        from html import escape

        if not hasattr(self, "model_json_"):
            return f"<pre>{escape(repr(self))}</pre>"
        total = max(int(self.class_pixels_.sum()), 1)
        rows = "".join(
            f"<tr><td><span style='display:inline-block;width:1.2em;height:.9em;border:1px solid #333;"
            f"background:rgb({r},{g},{b})'></span></td><td>{k}</td><td>{escape(name)}</td>"
            f"<td style='text-align:right'>{n}</td><td style='text-align:right'>{100 * n / total:.1f} %</td></tr>"
            for k, (name, (r, g, b), n) in enumerate(zip(self.class_names_, self.class_colours_.tolist(),
                                                          self.class_pixels_.tolist()), start=1))
        table = (f"<p><b>{escape(repr(self))}</b>: {self.n_classes_} classes</p><table><tr><th></th><th>class</th>"
                 f"<th>name</th><th>pixels</th><th>share</th></tr>{rows}</table>")
        page = getattr(self, "_report_html", None)
        if not page:
            return table
        return (table + "<iframe title='the report of the fit' style='width:100%;height:620px;border:1px solid #ccc' "
                f"sandbox='allow-scripts' srcdoc=\"{escape(page, quote=True)}\"></iframe>")

    # -- the model file ----------------------------------------------------
    def save(self, path):
        """Writes the model file (the command's ``-model-out``; ``-apply`` reads it)."""
        self._fitted()
        with open(path, "w", encoding="utf-8") as f:
            f.write(self.model_json_)


def _enlarged_mask(small_mask, width, height):
    if small_mask is None:
        return contextlib.nullcontext(None)
    m = small_mask.astype(np.bool_).view(np.uint8)[np.newaxis]
    return Enlarged(VirtualRaster(m), width, height)


def load(path):
    """An ISODATA fitted with a model file's classes, its parameters those
    the file records."""
    with open(path, encoding="utf-8") as f:
        text = f.read()
    try:
        model = json.loads(text)
        recorded = model.get("parameters") or {}
    except (ValueError, AttributeError) as error:
        raise RequestError(f"'{path}' is not a model file: {error}") from None
    params = {}
    for key, value in recorded.items():
        row = _options.BY_JSON_KEY.get(key)
        if row is not None and row["python_name"] in PARAMETERS and row["python_name"] != "tmpdir":
            params[row["python_name"]] = value
    if params.get("bands") == []:
        params["bands"] = None
    estimator = ISODATA(**params)
    estimator._take_model(text)
    estimator.summary_ = None
    estimator.excluded_ = None
    estimator.history_ = []
    estimator._report_html = None
    return estimator

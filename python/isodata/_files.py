"""Runs on files, exactly as the command runs them."""
from . import _command, _options


def classify(input, output, *, progress=None, **options):
    """Classifies a raster file into a class raster, as ``isodata input output``.

    The run has the command's lifecycle: every check first, a private run
    folder, and the output (with its preview and model file) put in place
    only when everything succeeded; a refused, failed or interrupted run
    (Ctrl-C raises KeyboardInterrupt) changes no file.

    Parameters
    ----------
    input, output : str or os.PathLike
        Any raster GDAL reads; the class raster to write.
    progress : None, bool or callable
        As for :meth:`ISODATA.fit`.
    **options
        The command's options under their Python names (``isodata.options()``
        lists them): ``n_classes=6``, ``format="GTiff"``,
        ``creation_options=["COMPRESS=LZW"]``, ``model_out="m.json"``,
        ``preview="q.png"``, ``overwrite=True``, ``nodata=0``, ``mask=...``.

    Returns
    -------
    dict
        The command's ``-json`` summary.

    Raises
    ------
    isodata.RequestError
        A request that cannot run (nothing was run or changed).
    isodata.RunError
        A run that failed on the way (nothing was changed).
    """
    return _command.run(_options.words(options) + [str(input), str(output)], progress)


def apply(model, input, output, *, progress=None, **options):
    """Labels a raster file with a model file's classes, as ``isodata -apply``.

    Options and the return value are those of :func:`classify`; the
    clustering options are refused, as the model fixes them.
    """
    options["model"] = str(model)
    return _command.run(_options.words(options) + [str(input), str(output)], progress)


def options():
    """The command's options as the package offers them: {Python name: the
    option table's row (names, type, default, range, help)}."""
    return dict(_options.ROWS)

"""Exceptions raised by the isodata package.

Every failure of a run is an :class:`Error` carrying the command's one-line
message; a request that cannot run (a wrong shape or type, a setting out of
range, a model that does not fit the bands, a mask of another size, no valid
pixel) is also a :class:`ValueError`, a run that failed on the way (the disk,
a file GDAL cannot write) also an :class:`OSError`.
"""


class Error(Exception):
    """A run of isodata refused or failed; ``str(error)`` is the command's message."""


class RequestError(Error, ValueError):
    """The request cannot run as asked; nothing was run and no file changed."""


class RunError(Error, OSError):
    """The run failed on the way; no file of yours was changed."""


class PreviewWarning(UserWarning):
    """The class raster was written but its preview could not be."""


class RunWarning(UserWarning):
    """What a person should know of a published result (the command's warnings)."""

"""QGIS plug-in entry point: registers the ISODATA Processing provider.

QGIS calls classFactory() and then initGui() (desktop) or only
initProcessing() (qgis_process); both end in registering the provider once,
and unload() takes it out again.
"""


def classFactory(iface):  # noqa: N802 - name fixed by QGIS
    return IsodataPlugin()


class IsodataPlugin:
    def __init__(self):
        self.provider = None

    def initProcessing(self):  # noqa: N802 - name fixed by QGIS
        from qgis.core import QgsApplication
        from .provider import IsodataProvider

        if self.provider is None:
            self.provider = IsodataProvider()
            QgsApplication.processingRegistry().addProvider(self.provider)

    def initGui(self):  # noqa: N802 - name fixed by QGIS
        self.initProcessing()

    def unload(self):
        from qgis.core import QgsApplication

        if self.provider is not None:
            QgsApplication.processingRegistry().removeProvider(self.provider)
            self.provider = None

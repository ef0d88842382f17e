"""The Processing provider 'isodata': its two algorithms (classify, apply a
class model) and the setting that says where the isodata command lives.

The setting sits under Settings > Options > Processing > Providers, like
other providers' executable paths; left empty, the command is looked up on
PATH.
"""
import shutil

from processing.core.ProcessingConfig import ProcessingConfig, Setting
from qgis.core import QgsProcessingProvider

from .apply import ApplyAlgorithm
from .classify import ClassifyAlgorithm

EXECUTABLE_SETTING = 'ISODATA_EXECUTABLE'


def isodata_executable():
    """The isodata command to run: the configured path, else the one on PATH,
    else None."""
    configured = ProcessingConfig.getSetting(EXECUTABLE_SETTING)
    if configured:
        return configured
    return shutil.which('isodata')


class IsodataProvider(QgsProcessingProvider):

    def id(self):
        return 'isodata'

    def name(self):
        return 'ISODATA'

    def longName(self):
        return self.tr('ISODATA unsupervised classification')

    def load(self):
        ProcessingConfig.addSetting(Setting(
            self.name(), EXECUTABLE_SETTING,
            self.tr('isodata executable (empty: look it up on PATH)'), '',
            valuetype=Setting.FILE))
        ProcessingConfig.readSettings()
        self.refreshAlgorithms()
        return True

    def unload(self):
        ProcessingConfig.removeSetting(EXECUTABLE_SETTING)

    def loadAlgorithms(self):
        self.addAlgorithm(ClassifyAlgorithm(isodata_executable))
        self.addAlgorithm(ApplyAlgorithm(isodata_executable))

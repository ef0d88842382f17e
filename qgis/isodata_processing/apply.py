"""The Processing algorithm isodata:apply: label a raster with the classes of
a model file that an isodata run wrote (-model-out, or the classify
algorithm's model output), so that the classes mean the same in every scene
and tile.

Its one parameter between input and output is the model file, passed as
`-apply <model>`; IsodataAlgorithm does the run. The command checks that the
input fits the model.
"""
from qgis.core import QgsProcessingParameterFile
from qgis.PyQt.QtCore import QCoreApplication

from .algorithm import IsodataAlgorithm


def _tr(text):
    return QCoreApplication.translate('ApplyAlgorithm', text)


class ApplyAlgorithm(IsodataAlgorithm):
    MODEL = 'MODEL'

    def name(self):
        return 'apply'

    def displayName(self):
        return _tr('Apply an ISODATA class model')

    def shortHelpString(self):
        return _tr(
            'Labels a raster with the classes of a model file written by an '
            'ISODATA classification (its class model output), by the same '
            'labelling the classification ended with. The raster needs the '
            'bands the model names, in the same data type.')

    def declare_parameters(self):
        self.addParameter(QgsProcessingParameterFile(
            self.MODEL, _tr('Class model file'), extension='json'))

    def command_arguments(self, parameters, context):
        return ['-apply', self.parameterAsFile(parameters, self.MODEL, context)]

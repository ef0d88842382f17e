"""The Processing algorithm isodata:apply: label a raster with the classes of
a model file that an isodata run wrote (-model-out, or the classify
algorithm's model output), so that the classes mean the same in every scene
and tile.

Plan: declare input, model file and output; run `isodata -apply` through
command.run with the output format from the file's extension; log the class
summary it returns. The command checks that the input fits the model.
"""
import shlex

from qgis.core import (QgsProcessingException, QgsProcessingParameterFile,
                       QgsProcessingParameterRasterLayer)
from qgis.PyQt.QtCore import QCoreApplication

from . import command
from .classify import ClassifyAlgorithm, IsodataAlgorithm


def _tr(text):
    return QCoreApplication.translate('ApplyAlgorithm', text)


class ApplyAlgorithm(IsodataAlgorithm):
    INPUT = 'INPUT'
    MODEL = 'MODEL'
    OUTPUT = 'OUTPUT'

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

    def initAlgorithm(self, config=None):
        self.addParameter(QgsProcessingParameterRasterLayer(self.INPUT, _tr('Input raster')))
        self.addParameter(QgsProcessingParameterFile(
            self.MODEL, _tr('Class model file'), extension='json'))
        self.addParameter(self._class_raster_parameter(self.OUTPUT))

    def processAlgorithm(self, parameters, context, feedback):
        program = self.locate_executable()
        if not program:
            raise QgsProcessingException(_tr('The isodata command was not found on PATH; set its '
                                             'path in Settings > Options > Processing > Providers > ISODATA.'))
        layer = self.parameterAsRasterLayer(parameters, self.INPUT, context)
        if layer is None:
            raise QgsProcessingException(self.invalidRasterError(parameters, self.INPUT))
        model = self.parameterAsFile(parameters, self.MODEL, context)
        output = self.parameterAsOutputLayer(parameters, self.OUTPUT, context)
        arguments = [program, '-overwrite', '-json', '-progress-format', 'machine',
                     '-of', ClassifyAlgorithm.format_for(output, self._formats()), '-apply', model, layer.source(), output]
        feedback.pushCommandInfo(shlex.join(arguments))
        try:
            summary = command.run(arguments, feedback)
        except command.CommandError as error:
            raise QgsProcessingException(str(error))
        if summary is None:
            feedback.pushInfo(_tr('Cancelled; nothing was written.'))
            return {}
        ClassifyAlgorithm.log_summary(summary, feedback)
        return {self.OUTPUT: output}

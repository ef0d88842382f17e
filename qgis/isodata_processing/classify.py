"""The Processing algorithm isodata:classify: its parameters, with the
isodata command's defaults and ranges, and the step from parameter values to
one run of the command.

Plan: declare the parameters with their help texts; in processAlgorithm
resolve the input layer, the band list and the output format (from the output
file's extension, GeoTIFF when it names none GDAL knows), run the command
through command.run, and log the class summary it returns. QGIS then loads
the output, whose colour table and category names give the class colours and
names.
"""
import os
import shlex

from qgis.core import (QgsProcessing, QgsProcessingAlgorithm,
                       QgsProcessingException, QgsProcessingParameterBand,
                       QgsProcessingParameterNumber,
                       QgsProcessingParameterRasterDestination,
                       QgsProcessingParameterRasterLayer,
                       QgsRasterFileWriter)
from qgis.PyQt.QtCore import QCoreApplication

from . import command

DEFAULT_FORMAT = 'GTiff'

# (parameter, isodata option, integer?, default, minimum, maximum, label, help)
NUMBERS = (
    ('CLASSES', '-classes', True, 8, 1, 255, 'Number of classes',
     'Number of classes wanted.'),
    ('INITIAL', '-initial', True, 4, 1, 255, 'Initial cluster centres',
     'Cluster centres to start from. The iterations end early once the '
     'cluster count equals the classes wanted after an odd-numbered '
     'iteration, so starting below that number leaves room to split.'),
    ('MIN_SIZE', '-min-size', True, 20, 0, None, 'Minimum cluster size (pixels)',
     'Clusters with fewer pixels are dropped (0 keeps all). Counted on the '
     'working copy: the input at full size up to 100 pixels on its shorter '
     'side, half size up to 5000, quarter size beyond.'),
    ('MERGE_PAIRS', '-merge-pairs', True, 2, 0, None, 'Cluster pairs merged per step',
     'Most cluster pairs merged in one merge step.'),
    ('ITERATIONS', '-iter', True, 10, 1, None, 'Iterations',
     'Iterations to run.'),
    ('STD', '-std', False, 10.0, 0.0, None, 'Split threshold (standard deviation)',
     'A cluster whose largest band standard deviation exceeds this may be '
     'split.'),
    ('MERGE_DIST', '-merge-dist', False, 20.0, 0.0, None, 'Merge distance',
     'Cluster centres closer than this (Euclidean distance, in pixel values) '
     'may be merged.'),
)


def _tr(text):
    return QCoreApplication.translate('ClassifyAlgorithm', text)


class ClassifyAlgorithm(QgsProcessingAlgorithm):
    INPUT = 'INPUT'
    BANDS = 'BANDS'
    OUTPUT = 'OUTPUT'

    def __init__(self, locate_executable):
        super().__init__()
        self.locate_executable = locate_executable

    def createInstance(self):
        return ClassifyAlgorithm(self.locate_executable)

    def name(self):
        return 'classify'

    def displayName(self):
        return _tr('ISODATA unsupervised classification')

    def tags(self):
        return _tr('isodata,unsupervised,classification,clustering,k-means').split(',')

    def shortHelpString(self):
        return _tr(
            'Sorts the pixels of a multi-band raster into classes of similar '
            'values with the ISODATA method: pixels go to their nearest '
            'cluster centre, centres are recomputed, spread-out clusters are '
            'split and close ones merged, for a number of iterations.\n\n'
            'The result is a one-band Byte raster: 0 is unclassified, 1..n '
            'are the classes, with a colour and a name each. Its format '
            'follows the output file\'s extension (GeoTIFF by default).\n\n'
            'Runs the isodata command, found on PATH or at the path set in '
            'Settings > Options > Processing > Providers > ISODATA.')

    def initAlgorithm(self, config=None):
        self.addParameter(QgsProcessingParameterRasterLayer(
            self.INPUT, _tr('Input raster')))
        bands = QgsProcessingParameterBand(
            self.BANDS, _tr('Bands to classify'), None, self.INPUT,
            optional=True, allowMultiple=True)
        bands.setHelp(_tr('Input bands to use (1-based). Default: every band.'))
        self.addParameter(bands)
        for name, _, whole, default, low, high, label, text in NUMBERS:
            kind = QgsProcessingParameterNumber.Integer if whole else QgsProcessingParameterNumber.Double
            number = QgsProcessingParameterNumber(name, _tr(label), kind, default, False, low)
            if high is not None:
                number.setMaximum(high)
            if not whole:
                number.setMetadata({'widget_wrapper': {'decimals': 2}})
            number.setHelp(_tr(text))
            self.addParameter(number)
        self.addParameter(QgsProcessingParameterRasterDestination(
            self.OUTPUT, _tr('Class raster')))

    def canExecute(self):
        if self.locate_executable():
            return True, ''
        return False, _tr('The isodata command was not found on PATH; set its '
                          'path in Settings > Options > Processing > Providers > ISODATA.')

    def processAlgorithm(self, parameters, context, feedback):
        program = self.locate_executable()
        if not program:
            raise QgsProcessingException(self.canExecute()[1])
        layer = self.parameterAsRasterLayer(parameters, self.INPUT, context)
        if layer is None:
            raise QgsProcessingException(self.invalidRasterError(parameters, self.INPUT))
        if layer.providerType() != 'gdal':
            raise QgsProcessingException(_tr('isodata reads files through GDAL; save the '
                                             'layer to a GeoTIFF first.'))
        output = self.parameterAsOutputLayer(parameters, self.OUTPUT, context)
        arguments = self._command_line(program, parameters, context, layer.source(), output)
        feedback.pushCommandInfo(shlex.join(arguments))

        try:
            summary = command.run(arguments, feedback)
        except command.CommandError as error:
            raise QgsProcessingException(_tr('isodata failed: {}').format(error))
        if summary is None:
            feedback.pushInfo(_tr('Cancelled; nothing was written.'))
            return {}
        self._log_summary(summary, feedback)
        return {self.OUTPUT: output}

    def _command_line(self, program, parameters, context, source, output):
        # QGIS has already asked before replacing an existing output file.
        arguments = [program, '-overwrite', '-json', '-progress-format', 'machine',
                     '-of', self._format_for(output)]
        for band in self.parameterAsInts(parameters, self.BANDS, context):
            arguments += ['-b', str(band)]
        for name, option, whole, *_ in NUMBERS:
            value = (self.parameterAsInt if whole else self.parameterAsDouble)(parameters, name, context)
            arguments += [option, str(value)]
        return arguments + [source, output]

    @staticmethod
    def _format_for(path):
        driver = QgsRasterFileWriter.driverForExtension(os.path.splitext(path)[1])
        return driver or DEFAULT_FORMAT

    @staticmethod
    def _log_summary(summary, feedback):
        classes = summary['classes']
        width, height = summary['size']
        feedback.pushInfo(_tr('{} classes in {:.1f} s; {} pixels unclassified').format(
            len(classes), summary['seconds'], summary['unclassified']))
        for entry in classes:
            feedback.pushInfo('{:>5}  {:<14} {:>10} pixels {:6.1f}%'.format(
                entry['value'], entry['name'], entry['pixels'], 100.0 * entry['pixels'] / (width * height)))

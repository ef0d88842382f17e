"""The Processing algorithm isodata:classify: its parameters, read from the
isodata command's own option table, and how their values become the
command's arguments; IsodataAlgorithm does the run.

Plan: between the input and the output, one parameter for each option the
command offers to QGIS (`isodata --options-json`, read once per executable):
the repeatable band option as a band list of the input, the others as
numbers with the command's defaults, ranges, labels and help, text, a raster
(with a box for the word none) or a JSON file to write. QGIS then loads the
output, whose colour table and category names give the class colours and
names.

When the command cannot be found or its option table cannot be read, the
algorithm shows only its input and output, canExecute says why, and a run is
refused with the same reason: a run without the command's own parameters
could only guess them.
"""
from qgis.core import (QgsProcessingParameterBand,
                       QgsProcessingParameterBoolean,
                       QgsProcessingParameterFileDestination,
                       QgsProcessingParameterNumber,
                       QgsProcessingParameterString,
                       QgsProcessingParameterRasterLayer)
from qgis.PyQt.QtCore import QCoreApplication

from . import command
from .algorithm import IsodataAlgorithm

# The box beside a raster_or_none parameter that asks for the word none.
NONE_SUFFIX = '_NONE'


def _tr(text):
    return QCoreApplication.translate('ClassifyAlgorithm', text)


class ClassifyAlgorithm(IsodataAlgorithm):
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

    def _options(self):
        """The command's options for QGIS, or () when they cannot be read."""
        program = self.locate_executable()
        try:
            return command.offered_options(program) if program else ()
        except command.CommandError:
            return ()

    def _parameter(self, option):
        name, label, kind = option['qgis_name'], _tr(option['qgis_label']), option.get('qgis_kind')
        if option['type'] == 'flag':
            parameter = QgsProcessingParameterBoolean(name, label, False, optional=True)
        elif kind == 'text':
            parameter = QgsProcessingParameterString(name, label, optional=True)
        elif kind == 'raster_or_none':
            parameter = QgsProcessingParameterRasterLayer(name, label, optional=True)
        elif kind == 'file_out':
            parameter = QgsProcessingParameterFileDestination(
                name, label, _tr('JSON files (*.json)'), optional=True, createByDefault=False)
        elif option['repeatable']:
            parameter = QgsProcessingParameterBand(name, label, None, self.INPUT,
                                                   optional=True, allowMultiple=True)
        else:
            whole = option['type'] == 'int'
            kind = QgsProcessingParameterNumber.Integer if whole else QgsProcessingParameterNumber.Double
            parameter = QgsProcessingParameterNumber(name, label, kind, option['default'], False)
            if option['min'] is not None:
                parameter.setMinimum(option['min'])
            if option['max'] is not None:
                parameter.setMaximum(option['max'])
            if not whole:
                parameter.setMetadata({'widget_wrapper': {'decimals': 2}})
        parameter.setHelp(_tr(option['help']))
        return parameter

    def declare_parameters(self):
        for option in self._options():
            self.addParameter(self._parameter(option))
            if option.get('qgis_kind') == 'raster_or_none':
                self.addParameter(QgsProcessingParameterBoolean(
                    option['qgis_name'] + NONE_SUFFIX,
                    _tr("Ignore the input's own mask and alpha bands"), False, optional=True))

    def command_arguments(self, parameters, context):
        arguments = []
        for option in self._options():
            flag, name, kind = option['names'][0], option['qgis_name'], option.get('qgis_kind')
            if option['type'] == 'flag':
                if self.parameterAsBool(parameters, name, context):
                    arguments.append(flag)
                continue
            if kind:
                values = self._text_values(parameters, name, kind, context)
            elif option['repeatable']:
                values = self.parameterAsInts(parameters, name, context)
            elif option['type'] == 'int':
                values = [self.parameterAsInt(parameters, name, context)]
            else:
                values = [self.parameterAsDouble(parameters, name, context)]
            for value in values:
                arguments += [flag, str(value)]
        return arguments

    def _text_values(self, parameters, name, kind, context):
        """The value of a text-like parameter, as the command takes it; none when unset."""
        if kind == 'raster_or_none':
            if self.parameterAsBool(parameters, name + NONE_SUFFIX, context):
                return ['none']
            layer = self.parameterAsRasterLayer(parameters, name, context)
            return [layer.source()] if layer is not None else []
        if kind == 'file_out':
            path = self.parameterAsFileOutput(parameters, name, context)
            return [path] if path else []
        text = self.parameterAsString(parameters, name, context).strip()
        return [text] if text else []

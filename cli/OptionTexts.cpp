// The texts read from the option table: the usage synopsis, --help with
// each option's help, default and range, the version line, an option's
// value as JSON for the summary, and the whole table as JSON.
#include "OptionTable.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gdal.h>

#include <sstream>

namespace isodata_cli {
namespace {

constexpr const char* kUsageStart = "Usage: isodata ";
constexpr size_t kHelpColumn = 23;  // where an option's help starts
constexpr size_t kHelpWidth = 79;

std::string Number(double value) {
    std::ostringstream s;
    s << value;
    return s.str();
}

// "[-classes <n>]", "[-b <band>]...".
std::string Synopsis(const OptionSpec& spec) {
    const std::string value = spec.value.empty() ? "" : " " + spec.value;
    return "[" + spec.Shown() + value + "]" + (spec.Repeatable() ? "..." : "");
}

// " Default: 8 (1..255)." and the like; empty for an option without one.
std::string DefaultSentence(const OptionSpec& spec) {
    if (!spec.byDefault.empty()) return " Default: " + spec.byDefault + ".";
    if (!spec.text.empty()) return " Default: " + spec.text + ".";
    const std::string type = spec.TypeName();
    if (type != "int" && type != "real") return {};
    std::string range;
    if (spec.min && spec.max) range = " (" + Number(*spec.min) + ".." + Number(*spec.max) + ")";
    else if (spec.min) range = *spec.min == 0 ? " (0 or more)" : " (at least " + Number(*spec.min) + ")";
    return " Default: " + Number(spec.number) + range + ".";
}

// text broken into lines of at most kHelpWidth, each but the first indented
// to the help column.
std::string Wrapped(const std::string& text) {
    std::istringstream words(text);
    std::string out, line, word;
    while (words >> word) {
        if (!line.empty() && kHelpColumn + line.size() + 1 + word.size() > kHelpWidth) {
            out += line + "\n" + std::string(kHelpColumn, ' ');
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return out + line + "\n";
}

std::string HelpEntry(const OptionSpec& spec) {
    std::string label = "  ";
    for (size_t i = 0; i < spec.names.size(); ++i) label += (i ? ", " : "") + spec.names[i];
    if (!spec.value.empty()) label += " " + spec.value;
    label += label.size() < kHelpColumn ? std::string(kHelpColumn - label.size(), ' ')
                                        : "\n" + std::string(kHelpColumn, ' ');
    return label + Wrapped(spec.help + DefaultSentence(spec));
}

// How a run treats the files around it, and what its exit status says.
std::string RunFolderHelp() {
    return "The run folder: isodata works in a private folder it creates beside the\n"
           "output (or under --tmpdir), holding links to the input's files, the\n"
           "classification's working copy (up to as large as the input: 32-bit values\n"
           "of every band at full, half or quarter size) and scratch files (4 bytes a\n"
           "working-copy pixel), and the new result. Only when everything succeeded is\n"
           "the result moved to <output>; otherwise, or when interrupted, the folder is\n"
           "removed and no file of yours is changed. A folder left by a killed run is\n"
           "removed by the next run in the same place. The input's folder is only read.\n\n"
           "Exit status:\n"
           "  0    the class raster (and preview) were written\n"
           "  1    bad command line or input; nothing was run\n"
           "  2    the classification failed (or the plug-in could not be loaded);\n"
           "       nothing was changed\n"
           "  3    the classification succeeded but the preview could not be written\n"
           "  129, 130, 143  ended by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was changed\n";
}

QJsonValue Bound(const std::optional<double>& bound) { return bound ? QJsonValue(*bound) : QJsonValue(); }

QJsonObject SpecJson(const OptionSpec& spec, const Options& defaults) {
    QJsonArray names, choices;
    for (const std::string& n : spec.names) names.append(QString::fromStdString(n));
    for (const auto& choice : spec.choices) choices.append(QString::fromStdString(choice.first));
    const auto TextOrNull = [](const std::string& s) { return s.empty() ? QJsonValue() : QString::fromStdString(s); };
    QJsonObject json{{"names", names},
                     {"type", QString::fromStdString(spec.TypeName())},
                     {"repeatable", spec.Repeatable()},
                     {"default", ValueJson(spec, defaults)},
                     {"min", Bound(spec.min)},
                     {"max", Bound(spec.max)},
                     {"help", QString::fromStdString(spec.help)},
                     {"json_key", TextOrNull(spec.jsonKey)},
                     {"qgis_name", TextOrNull(spec.qgisName)},
                     {"qgis_label", TextOrNull(spec.qgisLabel)}};
    if (!choices.isEmpty()) json["choices"] = choices;
    return json;
}

} // namespace

QJsonValue ValueJson(const OptionSpec& spec, const Options& o) {
    const auto Text = [](const std::string& s) { return s.empty() ? QJsonValue() : QString::fromStdString(s); };
    if (auto f = std::get_if<bool Options::*>(&spec.field)) return o.**f;
    if (auto f = std::get_if<int Options::*>(&spec.field)) return o.**f;
    if (auto f = std::get_if<double Options::*>(&spec.field)) return o.**f;
    if (auto f = std::get_if<std::string Options::*>(&spec.field)) return Text(o.**f);
    if (auto f = std::get_if<ProgressFormat Options::*>(&spec.field))
        for (const auto& [word, choice] : spec.choices)
            if (o.**f == choice) return QString::fromStdString(word);
    QJsonArray values;
    if (auto f = std::get_if<std::vector<int> Options::*>(&spec.field))
        for (int v : o.**f) values.append(v);
    if (auto f = std::get_if<std::vector<std::string> Options::*>(&spec.field))
        for (const std::string& v : o.**f) values.append(QString::fromStdString(v));
    return spec.Repeatable() ? QJsonValue(values) : QJsonValue();
}

QJsonObject ParametersJson(const Options& options) {
    QJsonObject parameters;
    for (const OptionSpec& spec : OptionTable())
        if (!spec.jsonKey.empty()) parameters[QString::fromStdString(spec.jsonKey)] = ValueJson(spec, options);
    return parameters;
}

std::string UsageText() {
    const std::string indent(std::string(kUsageStart).size(), ' ');
    std::string usage = kUsageStart, line;
    for (const OptionSpec& spec : OptionTable()) {
        if (spec.newUsageLine) {
            usage += line + "\n" + indent;
            line.clear();
        }
        line += (line.empty() ? "" : " ") + Synopsis(spec);
    }
    return usage + line + "\n" + indent + "<input> <output>\n";
}

std::string HelpText() {
    std::string help = "isodata: unsupervised ISODATA classification of a multi-band raster.\n\n" + UsageText() +
                       "\n"
                       "Writes <output> as a one-band Byte class raster georeferenced like <input>,\n"
                       "by default in ENVI format (raw pixels in <output>, the header in\n"
                       "<output base>.hdr). Pixel value 0 is unclassified, 1..n are the classes,\n"
                       "each with a name and a colour.\n\n"
                       "Options:\n";
    for (const OptionSpec& spec : OptionTable()) help += HelpEntry(spec);
    return help + "\n" + RunFolderHelp();
}

std::string VersionText() {
    return std::string("isodata ") + ISODATA_VERSION + " (" + GDALVersionInfo("--version") + ")";
}

std::string OptionsJson() {
    const Options defaults = DefaultOptions();
    QJsonArray options;
    for (const OptionSpec& spec : OptionTable()) options.append(SpecJson(spec, defaults));
    return QJsonDocument(QJsonObject{{"options", options}}).toJson(QJsonDocument::Indented).toStdString();
}

} // namespace isodata_cli

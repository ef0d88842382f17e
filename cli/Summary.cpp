// Lays the figures of a run's report out as a table, or as JSON whose
// "parameters" the option table gives.
#include "Summary.h"

#include "OptionTable.h"

#include <FileNames.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <sstream>

namespace isodata_cli {

using isodata_run::ClassCount;
using isodata_run::ResultSummary;
using isodata_run::RunOutcome;
using isodata_run::RunReport;

namespace {

QJsonArray Numbers(const std::vector<int>& values) {
    QJsonArray array;
    for (int v : values) array.append(v);
    return array;
}

} // namespace

std::string FormatJson(const RunReport& report, const Options& o) {
    const ResultSummary& s = report.summary;
    const double total = static_cast<double>(s.width) * s.height;
    QJsonArray classes;
    for (const ClassCount& c : s.classes) {
        QJsonObject entry{{"value", c.value},
                          {"name", QString::fromStdString(c.name)},
                          {"pixels", static_cast<double>(c.pixels)},
                          {"share", total > 0 ? static_cast<double>(c.pixels) / total : 0.0}};
        entry["colour"] = c.hasColour ? QJsonValue(Numbers({c.red, c.green, c.blue})) : QJsonValue();
        classes.append(entry);
    }
    const QJsonObject summary{{"input", QString::fromStdString(o.input)},
                              {"output", QString::fromStdString(o.output)},
                              {"format", QString::fromStdString(o.format)},
                              {"size", Numbers({s.width, s.height})},
                              {"parameters", ParametersJson(o)},
                              {"classes", classes},
                              {"unclassified", static_cast<double>(s.unclassified)},
                              {"seconds", report.seconds}};
    return QJsonDocument(summary).toJson(QJsonDocument::Indented).toStdString();
}

std::string FormatSummary(const RunReport& report, const Options& o) {
    const ResultSummary& s = report.summary;
    const std::int64_t total = static_cast<std::int64_t>(s.width) * s.height;
    auto share = [total](std::int64_t n) { return total ? 100.0 * static_cast<double>(n) / total : 0.0; };
    std::ostringstream out;
    char line[256];
    const int found = s.ClassesFound();
    std::snprintf(line, sizeof line, "%d %s found (%d requested) in %.1f s.\n", found,
                  found == 1 ? "class" : "classes", o.classes, report.seconds);
    out << line;
    out << "  class      pixels   share  colour (RGB)  name\n";
    for (const ClassCount& c : s.classes) {
        char colour[64];
        if (c.hasColour)
            std::snprintf(colour, sizeof colour, "%3d %3d %3d  ", c.red, c.green, c.blue);
        else
            std::snprintf(colour, sizeof colour, "%-13s", "-");
        std::snprintf(line, sizeof line, "  %5d %11lld  %5.1f%%  %s %s\n", c.value, static_cast<long long>(c.pixels),
                      share(c.pixels), colour, c.name.c_str());
        out << line;
    }
    std::snprintf(line, sizeof line, "Unclassified: %lld pixels (%.1f%%)\n", static_cast<long long>(s.unclassified),
                  share(s.unclassified));
    out << line;
    out << "Result:  " << o.output << " (" << o.format << ", " << s.width << " x " << s.height;
    if (o.format == "ENVI") out << ", header " << isodata::EnviHeaderPath(o.output);
    out << ")\n";
    if (report.outcome == RunOutcome::Ok && !o.previewPath.empty()) out << "Preview: " << o.previewPath << "\n";
    return out.str();
}

} // namespace isodata_cli

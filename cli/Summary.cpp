// Lays the figures of a run's report out as a table, or as JSON whose
// "parameters" the option table gives. Shares are of the valid pixels: the
// pixels the nodata values and masks left out are counted apart, and so are
// the valid pixels left unclassified.
#include "Summary.h"

#include "OptionTable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace isodata_cli {

using isodata_run::ClassReport;
using isodata_run::RunOutcome;
using isodata_run::RunReport;

namespace {

// Band statistics shown per class in the table; more go to the JSON only.
constexpr std::size_t kTableBands = 6;

QJsonArray Numbers(const std::vector<int>& values) {
    QJsonArray array;
    for (int v : values) array.append(v);
    return array;
}

QJsonValue Reals(const std::vector<double>& values) {
    if (values.empty()) return QJsonValue();
    QJsonArray array;
    for (double v : values) array.append(std::isfinite(v) ? QJsonValue(v) : QJsonValue());
    return array;
}

std::int64_t Total(const RunReport& r) { return static_cast<std::int64_t>(r.width) * r.height; }

// Whether the plug-in said what the class is made of.
bool HasFigures(const ClassReport& c) { return !c.centre.empty(); }

QJsonObject ClassJson(const ClassReport& c, const RunReport& r) {
    const std::int64_t valid = r.ValidPixels();
    QJsonObject entry{{"value", c.value},
                      {"name", QString::fromStdString(c.name)},
                      {"pixels", static_cast<double>(c.pixels)},
                      {"share", valid > 0 ? static_cast<double>(c.pixels) / static_cast<double>(valid) : 0.0}};
    entry["colour"] = c.hasColour ? QJsonValue(Numbers({c.red, c.green, c.blue})) : QJsonValue();
    if (HasFigures(c)) {
        entry["mean"] = Reals(c.mean);
        entry["stddev"] = Reals(c.stddev);
        entry["area"] = r.pixelArea > 0 ? QJsonValue(r.pixelArea * static_cast<double>(c.pixels)) : QJsonValue();
    }
    return entry;
}

QJsonObject ExcludedJson(const RunReport& f) {
    QJsonObject by;
    for (const auto& [rule, pixels] : f.excludedBy) by[QString::fromStdString(rule)] = static_cast<double>(pixels);
    return {{"pixels", static_cast<double>(f.excludedPixels)}, {"by", by}};
}

std::string Percent(std::int64_t part, std::int64_t whole) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f%%", whole ? 100.0 * static_cast<double>(part) / whole : 0.0);
    return text;
}

// "  class  band 1 mean (sd)  ..." lines of the classes' band statistics.
void StatisticsTable(std::ostream& out, const RunReport& r) {
    std::size_t bands = 0;
    for (const ClassReport& c : r.classes) bands = std::max(bands, c.mean.size());
    if (bands == 0) return;
    out << "  class  band mean ± standard deviation" << (bands > kTableBands ? " (the first bands)" : "") << "\n";
    for (const ClassReport& c : r.classes) {
        if (!HasFigures(c) || c.pixels == 0) continue;
        char line[64];
        std::snprintf(line, sizeof line, "  %5d ", c.value);
        out << line;
        for (std::size_t k = 0; k < std::min(bands, c.mean.size()) && k < kTableBands; ++k) {
            std::snprintf(line, sizeof line, " %9.4g ±%-8.3g", c.mean[k], c.stddev[k]);
            out << line;
        }
        out << "\n";
    }
}

QJsonArray IterationsJson(const RunReport& r) {
    QJsonArray rounds;
    for (const isodata_run::IterationReport& it : r.iterations) {
        QJsonArray merged;
        for (const auto& [a, b] : it.merged) merged.append(QJsonArray{a, b});
        rounds.append(QJsonObject{
            {"iteration", it.round ? QJsonValue(static_cast<double>(it.round)) : QJsonValue()},
            {"step", it.Step()},
            {"split", it.split ? QJsonValue(it.split) : QJsonValue()},
            {"merged", merged},
            {"removed", it.removed},
            {"classes", it.classes},
            {"mean_distance", std::isfinite(it.meanDistance) ? QJsonValue(it.meanDistance) : QJsonValue()}});
    }
    return rounds;
}

} // namespace

std::string IterationLines(const RunReport& report) {
    std::ostringstream out;
    for (const isodata_run::IterationReport& it : report.iterations) {
        out << (it.round ? "iteration " + std::to_string(it.round) : std::string("after the last iteration")) << ": ";
        if (it.removed) out << it.removed << " small cluster" << (it.removed == 1 ? "" : "s") << " dropped, ";
        if (it.split) out << "cluster " << it.split << " split";
        for (std::size_t i = 0; i < it.merged.size(); ++i)
            out << (i ? ", " : "clusters ") << it.merged[i].first << " and " << it.merged[i].second
                << (i + 1 == it.merged.size() ? " merged" : "");
        if (!it.split && it.merged.empty()) out << "no split or merge";
        out << "; " << it.classes << " cluster" << (it.classes == 1 ? "" : "s");
        if (std::isfinite(it.meanDistance)) out << ", mean distance " << it.meanDistance;
        out << "\n";
    }
    return out.str();
}

std::string FormatJson(const RunReport& report, const Options& o, const isodata_run::SpaceEstimate& space) {
    QJsonArray classes;
    for (const ClassReport& c : report.classes) classes.append(ClassJson(c, report));
    QJsonObject summary{{"input", QString::fromStdString(o.input)},
                        {"output", QString::fromStdString(o.output)},
                        {"format", QString::fromStdString(o.format)},
                        {"size", Numbers({report.width, report.height})},
                        {"parameters", ParametersJson(o)},
                        {"classes", classes},
                        {"unclassified", static_cast<double>(report.UnclassifiedValid())},
                        {"excluded", ExcludedJson(report)},
                        {"iterations", IterationsJson(report)},
                        {"seconds", report.seconds}};
    if (report.figuresKnown)
        summary["unclassified_by"] = QJsonObject{{"background", static_cast<double>(report.background)},
                                                 {"non_finite", static_cast<double>(report.nonFinite)},
                                                 {"beyond_reach", static_cast<double>(report.beyondReach)}};
    summary["space"] = QJsonObject{{"needed", static_cast<double>(space.needed)},
                                   {"free", static_cast<double>(space.free)},
                                   {"folder", QString::fromStdString(space.folder)}};
    summary["model"] = o.modelOut.empty() ? QJsonValue() : QJsonValue(QString::fromStdString(o.modelOut));
    return QJsonDocument(summary).toJson(QJsonDocument::Indented).toStdString();
}

std::string FormatSummary(const RunReport& report, const Options& o) {
    const std::int64_t valid = report.ValidPixels();
    std::ostringstream out;
    char line[256];
    const int found = report.ClassesFound();
    if (o.apply.empty())
        std::snprintf(line, sizeof line, "%d %s found (%d requested) in %.1f s.\n", found,
                      found == 1 ? "class" : "classes", o.classes, report.seconds);
    else
        std::snprintf(line, sizeof line, "%d %s of '%s' applied in %.1f s.\n", found, found == 1 ? "class" : "classes",
                      o.apply.c_str(), report.seconds);
    out << line;
    out << "  class      pixels   share  colour (RGB)  name\n";
    for (const ClassReport& c : report.classes) {
        char colour[64];
        if (c.hasColour)
            std::snprintf(colour, sizeof colour, "%3d %3d %3d  ", c.red, c.green, c.blue);
        else
            std::snprintf(colour, sizeof colour, "%-13s", "-");
        std::snprintf(line, sizeof line, "  %5d %11lld  %6s  %s %s\n", c.value, static_cast<long long>(c.pixels),
                      Percent(c.pixels, valid).c_str(), colour, c.name.c_str());
        out << line;
    }
    StatisticsTable(out, report);
    out << "Unclassified: " << report.UnclassifiedValid() << " pixels ("
        << Percent(report.UnclassifiedValid(), valid) << ")\n";
    if (report.excludedPixels > 0) {
        out << "Excluded:     " << report.excludedPixels << " pixels (" << Percent(report.excludedPixels, Total(report))
            << " of all; ";
        for (std::size_t i = 0; i < report.excludedBy.size(); ++i)
            out << (i ? ", " : "") << report.excludedBy[i].first << " " << report.excludedBy[i].second;
        out << "), 0 in the result\n";
    }
    out << "Result:  " << o.output << " (" << o.format << ", " << report.width << " x " << report.height;
    if (!report.resultHeader.empty()) out << ", header " << report.resultHeader;
    out << ")\n";
    if (report.outcome == RunOutcome::Ok && !o.previewPath.empty()) out << "Preview: " << o.previewPath << "\n";
    if (!o.modelOut.empty()) out << "Model:   " << o.modelOut << "\n";
    if (!o.reportPath.empty()) out << "Report:  " << o.reportPath << "\n";
    return out.str();
}

} // namespace isodata_cli

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
#include <cstring>
#include <sstream>
#include <tuple>

namespace isodata_cli {

using isodata_run::ClassReport;
using isodata_run::RunOutcome;
using isodata_run::RunReport;

namespace {

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

QJsonValue SeparabilityJson(const RunReport& r) {
    if (r.separability.empty()) return QJsonValue();
    QJsonArray matrix;
    for (const std::vector<double>& row : r.separability) {
        QJsonArray values;
        for (double v : row) values.append(std::isfinite(v) ? QJsonValue(v) : QJsonValue());
        matrix.append(values);
    }
    return QJsonObject{{"measure", QString::fromStdString(r.separabilityMeasure)},
                       {"matrix", matrix},
                       {"threshold", r.separabilityThreshold}};
}

// "Hard to separate (...): 2 and 3 (1.42), ..." for the pairs below the
// measure's threshold, closest first; nothing when every pair separates.
std::string HardPairs(const RunReport& r) {
    std::vector<const ClassReport*> shown;
    for (const ClassReport& c : r.classes)
        if (!c.centre.empty()) shown.push_back(&c);
    std::vector<std::tuple<double, int, int>> pairs;
    for (std::size_t i = 0; i < r.separability.size() && i < shown.size(); ++i)
        for (std::size_t j = i + 1; j < r.separability[i].size() && j < shown.size(); ++j)
            if (r.separability[i][j] < r.separabilityThreshold && shown[i]->pixels > 0 && shown[j]->pixels > 0)
                pairs.emplace_back(r.separability[i][j], shown[i]->value, shown[j]->value);
    if (pairs.empty()) return {};
    std::sort(pairs.begin(), pairs.end());
    std::ostringstream out;
    char threshold[16];
    std::snprintf(threshold, sizeof threshold, "%.1f", r.separabilityThreshold);
    const std::string head = "Hard to separate (" + r.separabilityMeasure + " below " + threshold + "):";
    out << head;
    std::size_t column = head.size();
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        char pair[48];
        std::snprintf(pair, sizeof pair, " %d and %d (%.2f)%s", std::get<1>(pairs[i]), std::get<2>(pairs[i]),
                      std::get<0>(pairs[i]), i + 1 < pairs.size() ? "," : "");
        if (column + std::strlen(pair) > 78) {
            out << "\n ";
            column = 1;
        }
        out << pair;
        column += std::strlen(pair);
    }
    out << "\n";
    return out.str();
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
                        {"separability", SeparabilityJson(report)},
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
    out << HardPairs(report);
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

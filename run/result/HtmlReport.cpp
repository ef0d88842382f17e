// The HTML report of a run.
//
//  1. The figures go into the page twice: as tables (which the page shows,
//     and which stand for the charts where a person cannot see them) and as
//     one JSON object the page's own script draws the charts from.
//  2. The class map is the class raster's quick-look, a PNG in the page.
//  3. The charting library's file is read from where it is installed and
//     written into the page with the script that uses it: nothing is
//     fetched when the page opens.
#include "HtmlReport.h"
#include "Run.h"

#include "Preview.h"

#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

namespace isodata_run {
namespace {

// The longer side of the quick-look in the page, in pixels.
constexpr int kQuickLookSide = 640;

std::string Escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

std::string Fixed(double value, int decimals) {
    if (!std::isfinite(value)) return "–";
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

bool ReadWhole(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    text = buffer.str();
    return static_cast<bool>(in) || in.eof();
}

// The class raster's quick-look as a data: URL; empty when it cannot be made.
std::string QuickLook(GDALDataset& classes) {
    const std::string png = "/vsimem/isodata-report-" + std::to_string(getpid()) + ".png";
    std::string error;
    std::string url;
    if (WritePreview(classes, png, png, error, kQuickLookSide)) {
        vsi_l_offset length = 0;
        GByte* bytes = VSIGetMemFileBuffer(png.c_str(), &length, FALSE);
        if (bytes) {
            char* encoded = CPLBase64Encode(static_cast<int>(length), bytes);
            url = std::string("data:image/png;base64,") + encoded;
            CPLFree(encoded);
        }
    }
    VSIUnlink(png.c_str());
    return url;
}

// A band as a person knows it: its description, else its wavelength, else its number.
std::string BandName(GDALDataset* input, const ModelBand& band) {
    if (!band.description.empty()) return band.description;
    GDALRasterBand* b = input && band.band <= input->GetRasterCount() ? input->GetRasterBand(band.band) : nullptr;
    const char* wavelength = b ? b->GetMetadataItem("wavelength") : nullptr;
    if (!wavelength && b) wavelength = b->GetMetadataItem("CENTRAL_WAVELENGTH_UM", "IMAGERY");
    if (wavelength && *wavelength) return "band " + std::to_string(band.band) + " (" + wavelength + ")";
    return "band " + std::to_string(band.band);
}

struct Area {
    double scale = 1.0;  // map units² (or pixels) per unit shown
    std::string unit;
};

// Areas in km² for metre maps larger than a few hectares, else map units²;
// pixels without a pixel area.
Area AreaUnit(const RunReport& r) {
    if (r.pixelArea <= 0.0) return {1.0, "pixels"};
    std::int64_t pixels = 0;
    for (const ClassReport& c : r.classes) pixels += c.pixels;
    return pixels * r.pixelArea > 1e6 ? Area{1e6, "km²"} : Area{1.0, "map units²"};
}

double AreaOf(const RunReport& r, const ClassReport& c, const Area& unit) {
    return (r.pixelArea > 0.0 ? c.pixels * r.pixelArea : static_cast<double>(c.pixels)) / unit.scale;
}

QJsonArray Numbers(const std::vector<double>& values) {
    QJsonArray a;
    for (double v : values) a.append(std::isfinite(v) ? QJsonValue(v) : QJsonValue());
    return a;
}

QJsonObject PageData(const ReportPage& page, const std::vector<std::string>& bands, const Area& unit) {
    const RunReport& r = page.report;
    QJsonArray names, classes, rounds;
    for (const std::string& b : bands) names.append(QString::fromStdString(b));
    for (const ClassReport& c : r.classes) {
        if (c.pixels == 0) continue;
        classes.append(QJsonObject{{"value", c.value},
                                   {"name", QString::fromStdString(c.name.empty() ? "class " + std::to_string(c.value) : c.name)},
                                   {"colour", QJsonArray{c.red, c.green, c.blue}},
                                   {"pixels", static_cast<double>(c.pixels)},
                                   {"area", AreaOf(r, c, unit)},
                                   {"mean", Numbers(c.mean)},
                                   {"stddev", Numbers(c.stddev)}});
    }
    for (const IterationReport& it : r.iterations)
        if (it.round)
            rounds.append(QJsonObject{{"iteration", static_cast<double>(it.round)}, {"classes", it.classes},
                                      {"mean_distance", std::isfinite(it.meanDistance) ? QJsonValue(it.meanDistance) : QJsonValue()}});
    return {{"bands", names}, {"classes", classes}, {"iterations", rounds}, {"area_unit", QString::fromStdString(unit.unit)}};
}

void RunSection(std::ostream& out, const ReportPage& page, const std::vector<std::string>& bands) {
    const RunReport& r = page.report;
    const RunRequest& q = page.request;
    out << "<section id=\"run\"><h2>The run</h2><table class=\"facts\">\n"
        << "<tr><th scope=\"row\">Input</th><td>" << Escape(q.input.path) << "</td></tr>\n"
        << "<tr><th scope=\"row\">Size</th><td>" << r.width << " × " << r.height << " pixels, " << q.input.bands
        << " band" << (q.input.bands == 1 ? "" : "s") << "</td></tr>\n"
        << "<tr><th scope=\"row\">Bands classified</th><td>";
    for (std::size_t i = 0; i < bands.size(); ++i) out << (i ? ", " : "") << Escape(bands[i]);
    out << "</td></tr>\n<tr><th scope=\"row\">Output</th><td>" << Escape(q.output.path) << " (" << Escape(q.output.format)
        << ")</td></tr>\n";
    const QJsonObject parameters = QJsonDocument::fromJson(QByteArray::fromStdString(page.model.parametersJson)).object();
    out << "<tr><th scope=\"row\">Parameters</th><td>";
    bool first = true;
    for (auto it = parameters.begin(); it != parameters.end(); ++it) {
        if (it.value().isNull() || (it.value().isArray() && it.value().toArray().isEmpty())) continue;
        if (it.key() == "overwrite" || it.key() == "report" || it.key() == "preview" || it.key() == "model-out")
            continue;  // where files went, not how the classes were found
        QJsonDocument value = it.value().isArray() ? QJsonDocument(it.value().toArray()) : QJsonDocument();
        const std::string shown = it.value().isArray()   ? value.toJson(QJsonDocument::Compact).toStdString()
                                  : it.value().isString() ? it.value().toString().toStdString()
                                  : it.value().isBool()   ? (it.value().toBool() ? "yes" : "no")
                                                          : QString::number(it.value().toDouble()).toStdString();
        out << (first ? "" : "; ") << "<span class=\"nowrap\">" << Escape(it.key().toStdString()) << " "
            << Escape(shown) << "</span>";
        first = false;
    }
    if (!q.model.applyCentres.empty()) out << (first ? "" : "; ") << "the classes of a model file, applied";
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f s", r.seconds);
    const std::time_t now = std::time(nullptr);
    char when[64];
    std::strftime(when, sizeof when, "%Y-%m-%d %H:%M %Z", std::localtime(&now));
    out << "</td></tr>\n<tr><th scope=\"row\">Time</th><td>" << seconds << ", finished " << when << "</td></tr>\n"
        << "<tr><th scope=\"row\">Left out</th><td>" << r.excludedPixels << " pixels";
    for (std::size_t i = 0; i < r.excludedBy.size(); ++i)
        out << (i ? ", " : " (") << Escape(r.excludedBy[i].first) << " " << r.excludedBy[i].second
            << (i + 1 == r.excludedBy.size() ? ")" : "");
    out << "</td></tr>\n<tr><th scope=\"row\">Unclassified</th><td>" << r.UnclassifiedValid()
        << " valid pixels</td></tr>\n</table></section>\n";
}

void MapSection(std::ostream& out, const ReportPage& page, const Area& unit) {
    const RunReport& r = page.report;
    const std::string picture = QuickLook(page.classes);
    out << "<section id=\"map\"><h2>Class map</h2>\n";
    if (!picture.empty())
        out << "<img class=\"map\" src=\"" << picture << "\" alt=\"The class map of " << Escape(page.request.input.path)
            << ": each pixel in its class's colour, as in the legend beside it\">\n";
    out << "<table class=\"legend\"><caption>Legend</caption><thead><tr><th scope=\"col\">Colour</th><th "
           "scope=\"col\">Class</th><th scope=\"col\">Name</th><th scope=\"col\">Pixels</th><th "
           "scope=\"col\">Share</th><th scope=\"col\">Area ("
        << Escape(unit.unit) << ")</th></tr></thead><tbody>\n";
    const double valid = static_cast<double>(r.ValidPixels());
    for (const ClassReport& c : r.classes) {
        if (c.pixels == 0) continue;
        out << "<tr><td><span class=\"swatch\" style=\"background:rgb(" << c.red << "," << c.green << "," << c.blue
            << ")\" role=\"img\" aria-label=\"red " << c.red << ", green " << c.green << ", blue " << c.blue
            << "\"></span></td><td>" << c.value << "</td><td>" << Escape(c.name) << "</td><td class=\"num\">"
            << c.pixels << "</td><td class=\"num\">" << Fixed(valid > 0 ? 100.0 * c.pixels / valid : 0.0, 1)
            << " %</td><td class=\"num\">" << Fixed(AreaOf(r, c, unit), unit.unit == "pixels" ? 0 : 3)
            << "</td></tr>\n";
    }
    out << "</tbody></table></section>\n";
}

void SignatureSection(std::ostream& out, const RunReport& r, const std::vector<std::string>& bands) {
    out << "<section id=\"signatures\"><h2>Spectral signatures</h2>\n<figure><div class=\"chart\"><canvas "
           "id=\"signature-chart\" role=\"img\" aria-label=\"Line chart: the mean of every class in each "
           "classified band, with a band of one standard deviation either side, in the class's colour. The "
           "values are in the table below.\"></canvas></div><figcaption>Mean ± standard deviation of each "
           "class over its full-resolution pixels, band by band.</figcaption></figure>\n"
        << "<details><summary>The values</summary><table class=\"values\"><thead><tr><th scope=\"col\">Class</th>";
    for (const std::string& b : bands) out << "<th scope=\"col\">" << Escape(b) << "</th>";
    out << "</tr></thead><tbody>\n";
    for (const ClassReport& c : r.classes) {
        if (c.pixels == 0 || c.mean.empty()) continue;
        out << "<tr><th scope=\"row\">" << Escape(c.name) << "</th>";
        for (std::size_t i = 0; i < c.mean.size(); ++i)
            out << "<td class=\"num\">" << Fixed(c.mean[i], 2) << " ± " << Fixed(c.stddev[i], 2) << "</td>";
        out << "</tr>\n";
    }
    out << "</tbody></table></details></section>\n";
}

void AreaSection(std::ostream& out, const Area& unit) {
    out << "<section id=\"areas\"><h2>Class areas</h2>\n<figure><div class=\"chart short\"><canvas id=\"area-chart\" "
           "role=\"img\" aria-label=\"Bar chart: the area of every class in "
        << Escape(unit.unit) << "; the legend table above gives the same figures.\"></canvas></div>"
        << "<figcaption>Area of each class (" << Escape(unit.unit) << ").</figcaption></figure></section>\n";
}

void ConvergenceSection(std::ostream& out, const RunReport& r) {
    out << "<section id=\"convergence\"><h2>Convergence</h2>\n";
    if (r.iterations.empty()) {
        out << "<p>The classes of a model file were applied: there were no iterations.</p></section>\n";
        return;
    }
    out << "<figure><div class=\"chart short\"><canvas id=\"convergence-chart\" role=\"img\" aria-label=\"Line "
           "chart: the number of clusters and the overall mean distance after each iteration; the table below "
           "gives the same figures.\"></canvas></div><figcaption>Clusters and overall mean distance per "
           "iteration.</figcaption></figure>\n<details><summary>Each iteration</summary><table "
           "class=\"values\"><thead><tr><th scope=\"col\">Iteration</th><th scope=\"col\">Step</th><th "
           "scope=\"col\">Clusters after</th><th scope=\"col\">Mean distance</th></tr></thead><tbody>\n";
    for (const IterationReport& it : r.iterations) {
        std::ostringstream step;
        if (it.removed) step << it.removed << " small dropped" << (it.split || !it.merged.empty() ? "; " : "");
        if (it.split) step << "split " << it.split;
        for (std::size_t i = 0; i < it.merged.size(); ++i)
            step << (i ? ", " : "merged ") << it.merged[i].first << "+" << it.merged[i].second;
        if (!it.removed && !it.split && it.merged.empty()) step << "none";
        out << "<tr><td>" << (it.round ? std::to_string(it.round) : std::string("after the last")) << "</td><td>"
            << step.str() << "</td><td class=\"num\">" << it.classes << "</td><td class=\"num\">"
            << Fixed(it.meanDistance, 3) << "</td></tr>\n";
    }
    out << "</tbody></table></details></section>\n";
}

struct Shade {
    int rgb[3];
    bool lightText;
};

// Two sequential scales meeting at the threshold, so that pairs on either
// side of it read apart at a glance: t in 0..1 from pale to strong.
Shade Between(const int pale[3], const int strong[3], double t) {
    t = std::min(1.0, std::max(0.0, t));
    Shade s{{0, 0, 0}, t > 0.55};
    for (int c = 0; c < 3; ++c) s.rgb[c] = static_cast<int>(std::lround(pale[c] + (strong[c] - pale[c]) * t));
    return s;
}
Shade HardShade(double t) {
    static const int pale[3] = {254, 230, 206}, strong[3] = {166, 54, 3};
    return Between(pale, strong, t * 2.0);  // most hard pairs lie in the upper half of the scale
}
Shade ApartShade(double t) {
    static const int pale[3] = {222, 235, 247}, strong[3] = {8, 81, 156};
    return Between(pale, strong, t);
}

void SeparabilitySection(std::ostream& out, const RunReport& r) {
    out << "<section id=\"separability\"><h2>Separability</h2>\n";
    const std::vector<std::vector<double>>& m = r.separability;
    if (m.empty()) {
        out << "<p>No separability was measured for this run.</p></section>\n";
        return;
    }
    out << "<p>" << Escape(r.separabilityMeasure) << " between every pair of classes, from each class's mean and "
        << "covariance over its full-resolution pixels: 0 for classes that cannot be told apart, up to "
        << Fixed(r.separabilityMaximum, 0) << " for classes that never overlap. Pairs below "
        << Fixed(r.separabilityThreshold, 1) << " (marked) are hard to separate.</p>\n"
        << "<table class=\"heat\"><caption>" << Escape(r.separabilityMeasure)
        << " (orange: hard to separate, darker is harder; blue: apart, darker is further)</caption><thead><tr><th scope=\"col\">Class</th>";
    std::vector<const ClassReport*> shown;
    for (const ClassReport& c : r.classes)
        if (!c.centre.empty()) shown.push_back(&c);
    for (const ClassReport* c : shown) out << "<th scope=\"col\">" << c->value << "</th>";
    out << "</tr></thead><tbody>\n";
    for (std::size_t i = 0; i < m.size() && i < shown.size(); ++i) {
        out << "<tr><th scope=\"row\">" << shown[i]->value << " " << Escape(shown[i]->name) << "</th>";
        for (std::size_t j = 0; j < m[i].size(); ++j) {
            const double v = m[i][j];
            const bool hard = i != j && std::isfinite(v) && v < r.separabilityThreshold;
            const Shade shade = i == j || !std::isfinite(v) ? Shade{{242, 242, 242}, false}
                                : hard ? HardShade(1.0 - v / r.separabilityThreshold)
                                       : ApartShade((v - r.separabilityThreshold) /
                                                    (r.separabilityMaximum - r.separabilityThreshold));
            out << "<td class=\"num" << (hard ? " hard" : "") << "\" style=\"background:rgb(" << shade.rgb[0] << ","
                << shade.rgb[1] << "," << shade.rgb[2] << ");color:" << (shade.lightText ? "#fff" : "#111") << "\">"
                << (i == j ? "–" : Fixed(v, 3)) << (hard ? " <span class=\"mark\">hard</span>" : "") << "</td>";
        }
        out << "</tr>\n";
    }
    out << "</tbody></table></section>\n";
}

constexpr const char* kStyle = R"(
body{font:15px/1.45 system-ui,-apple-system,"Segoe UI",Roboto,sans-serif;color:#1b1b1b;background:#fff;max-width:1100px;margin:0 auto;padding:1em 1.5em}
h1{font-size:1.6em;margin-bottom:.2em}h2{font-size:1.25em;border-bottom:2px solid #d0d7de;padding-bottom:.2em;margin-top:1.6em}
table{border-collapse:collapse;margin:.5em 0}th,td{border:1px solid #c6cbd1;padding:.25em .6em;text-align:left;vertical-align:top}
thead th{background:#f0f3f6}.num{text-align:right;font-variant-numeric:tabular-nums}.facts th{background:#f6f8fa;width:11em}
.nowrap{white-space:nowrap}.swatch{display:inline-block;width:1.4em;height:1em;border:1px solid #333;vertical-align:middle}
.map{max-width:100%;image-rendering:pixelated;border:1px solid #c6cbd1;float:left;margin:0 1.5em 1em 0}
#map::after{content:"";display:block;clear:both}.chart{position:relative;height:420px}.chart.short{height:300px}
figure{margin:0}figcaption{color:#444;font-size:.92em}details{margin:.5em 0}summary{cursor:pointer;color:#0b5cad}
.heat td{min-width:4.2em}.hard{outline:3px solid #b00020;outline-offset:-3px;font-weight:bold}.mark{font-size:.75em}
)";

// Draws the charts from the page's data; a count on <body> says how many were drawn.
constexpr const char* kScript = R"(
(function () {
  var data = JSON.parse(document.getElementById('isodata-data').textContent);
  var rgb = function (c, a) { return 'rgba(' + c[0] + ',' + c[1] + ',' + c[2] + ',' + a + ')'; };
  var drawn = 0;
  Chart.defaults.animation = false;
  Chart.defaults.color = '#1b1b1b';
  Chart.defaults.font.size = 13;
  var classes = data.classes.filter(function (c) { return c.mean.length > 0; });
  var sets = [];
  classes.forEach(function (c) {
    var hi = c.mean.map(function (m, i) { return m + c.stddev[i]; });
    var lo = c.mean.map(function (m, i) { return m - c.stddev[i]; });
    sets.push({label: c.name, data: c.mean, borderColor: rgb(c.colour, 1), backgroundColor: rgb(c.colour, 1),
               borderWidth: 2.5, pointRadius: 3, fill: false});
    sets.push({label: c.name + ' ± sd', data: hi, borderWidth: 0, pointRadius: 0, fill: '+1',
               backgroundColor: rgb(c.colour, 0.13), spread: true});
    sets.push({label: c.name + ' - sd', data: lo, borderWidth: 0, pointRadius: 0, fill: false, spread: true});
  });
  var chart = document.getElementById('signature-chart');
  if (chart && classes.length) {
    new Chart(chart, {type: 'line', data: {labels: data.bands, datasets: sets},
      options: {maintainAspectRatio: false, interaction: {mode: 'nearest', intersect: false},
        plugins: {legend: {labels: {filter: function (item, d) { return !d.datasets[item.datasetIndex].spread; }}},
                  tooltip: {filter: function (item) { return !item.dataset.spread; },
                            callbacks: {label: function (item) {
                              var c = classes[Math.floor(item.datasetIndex / 3)];
                              return c.name + ': ' + c.mean[item.dataIndex].toFixed(2) + ' ± ' +
                                     c.stddev[item.dataIndex].toFixed(2); }}}},
        scales: {y: {title: {display: true, text: 'pixel value'}}, x: {title: {display: true, text: 'band'}}}}});
    drawn++;
  }
  chart = document.getElementById('area-chart');
  if (chart && data.classes.length) {
    new Chart(chart, {type: 'bar',
      data: {labels: data.classes.map(function (c) { return c.name; }),
             datasets: [{label: 'area (' + data.area_unit + ')', data: data.classes.map(function (c) { return c.area; }),
                         backgroundColor: data.classes.map(function (c) { return rgb(c.colour, 1); }),
                         borderColor: '#333', borderWidth: 1}]},
      options: {maintainAspectRatio: false, plugins: {legend: {display: false}},
                scales: {y: {beginAtZero: true, title: {display: true, text: data.area_unit}}}}});
    drawn++;
  }
  chart = document.getElementById('convergence-chart');
  if (chart && data.iterations.length) {
    new Chart(chart, {type: 'line',
      data: {labels: data.iterations.map(function (r) { return r.iteration; }),
             datasets: [{label: 'clusters', data: data.iterations.map(function (r) { return r.classes; }),
                         borderColor: '#0b5cad', backgroundColor: '#0b5cad', stepped: true, yAxisID: 'clusters'},
                        {label: 'overall mean distance', data: data.iterations.map(function (r) { return r.mean_distance; }),
                         borderColor: '#b35c00', backgroundColor: '#b35c00', borderDash: [6, 4], yAxisID: 'distance'}]},
      options: {maintainAspectRatio: false,
                scales: {x: {title: {display: true, text: 'iteration'}},
                         clusters: {position: 'left', beginAtZero: true, ticks: {precision: 0},
                                    title: {display: true, text: 'clusters'}},
                         distance: {position: 'right', grid: {drawOnChartArea: false},
                                    title: {display: true, text: 'mean distance'}}}}});
    drawn++;
  }
  document.body.setAttribute('data-charts-drawn', String(drawn));
})();
)";

} // namespace

std::string ChartLibraryPath() {
    const char* given = std::getenv("ISODATA_CHART_JS");
    const char* path = given && *given ? given : "/usr/share/javascript/chart.js/chart.min.js";  // libjs-chart.js
    VSIStatBufL stat;
    return VSIStatL(path, &stat) == 0 && VSI_ISREG(stat.st_mode) ? path : "";
}

bool WriteHtmlReport(const ReportPage& page, const std::string& path, std::string& error) {
    std::string library;
    const std::string libraryPath = ChartLibraryPath();
    if (libraryPath.empty() || !ReadWhole(libraryPath, library)) {
        error = "cannot read the chart library '" + libraryPath + "' the report embeds";
        return false;
    }
    const GDALDatasetUniquePtr input(GDALDataset::Open(page.inputName.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    std::vector<std::string> bands;
    for (const ModelBand& band : page.model.bands) bands.push_back(BandName(input.get(), band));
    const Area unit = AreaUnit(page.report);
    std::string data = QJsonDocument(PageData(page, bands, unit)).toJson(QJsonDocument::Compact).toStdString();
    for (std::size_t at = data.find("</"); at != std::string::npos; at = data.find("</", at + 3)) data.insert(at + 1, "\\");

    std::ostringstream out;
    const std::string title = "Classes of " + page.request.input.path;
    out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
        << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        << "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
           "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
        << "<title>" << Escape(title) << "</title><style>" << kStyle << "</style></head>\n<body>\n"
        << "<header><h1>" << Escape(title) << "</h1><p>" << page.report.ClassesFound() << " classes, written by "
        << Escape(page.model.tool) << ".</p></header>\n<main>\n";
    RunSection(out, page, bands);
    MapSection(out, page, unit);
    SignatureSection(out, page.report, bands);
    AreaSection(out, unit);
    ConvergenceSection(out, page.report);
    SeparabilitySection(out, page.report);
    out << "</main>\n<script>" << library << "</script>\n<script type=\"application/json\" id=\"isodata-data\">"
        << data << "</script>\n<script>" << kScript << "</script>\n</body></html>\n";

    const std::string page_text = out.str();
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(page_text.data(), static_cast<std::streamsize>(page_text.size()));
    file.close();
    if (!file) {
        error = "cannot write the report '" + path + "'";
        std::remove(path.c_str());
        return false;
    }
    return true;
}

} // namespace isodata_run

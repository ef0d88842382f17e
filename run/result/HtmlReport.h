// The run's report as one self-contained HTML page: the run, the class map
// with its legend, the spectral signatures, the class areas, the convergence
// over the iterations and the separability of the classes. The charting
// library is read from where it is installed and written into the page, so
// the page opens offline and asks the network for nothing.
#pragma once

#include "Model.h"
#include "RunReport.h"
#include "RunRequest.h"

#include <string>

class GDALDataset;

namespace isodata_run {

struct ReportPage {
    const RunRequest& request;
    const RunReport& report;
    const Model& model;       // the bands and parameters of the run
    GDALDataset& classes;     // the class raster, for the quick-look
    std::string inputName;    // the input as the run folder holds it, for the bands' names
};

// Writes the page to path. False with error set when it cannot be made.
bool WriteHtmlReport(const ReportPage& page, const std::string& path, std::string& error);

} // namespace isodata_run

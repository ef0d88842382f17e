// Every text a run shows the host, as English source strings, grouped by the
// translation context it is looked up in, and what each stage weighs in the
// whole run. The plug-in reports them through the progress signal; the run
// library takes them apart (the round counter inside the growing iteration
// prefix) and weighs them for every host; the tests' stand-in plug-in
// reports them as the plug-in does, so all three take them from here.
#pragma once

#include <string>

namespace isodata {

// The algorithm object and the run driver.
inline constexpr const char* kFrameContext = "ISODataClassification";
inline constexpr const char* kWrongParameterType = "Type is Not stInfoClassificationISO!";
inline constexpr const char* kWrongRunParameterType = "Type is Not stIsodataRun!";  // the run with options
inline constexpr const char* kRunStarted = "ISOData Is Runing...";

// The engine's iteration driver. Inside the loop every stage text is the
// prefix "Select Initial Cluster Center" + "<round>times iteration" for each
// round so far, then the stage's own text.
inline constexpr const char* kEngineContext = "CMXRVImageISOData";
inline constexpr const char* kSelectInitialCenter = "Select Initial Cluster Center";
inline constexpr const char* kStatisticalClassification = "Statistical classification";
inline constexpr const char* kTimesIteration = "times iteration";
inline constexpr const char* kComputingClusterCenter = "Computing Cluster Center";
inline constexpr const char* kAverageDistance = "Calculate the average distance from the center of the class";
inline constexpr const char* kSplit = "Split";
inline constexpr const char* kSplitClassification = "Split-Statistical classification";
inline constexpr const char* kMergeClassification = "Merger-Statistical classification";
inline constexpr const char* kGenerateResultFile = "Generate result file";

// The centre choice and the result output.
inline constexpr const char* kOutputContext = "CMXRVUnsupervisedClassification";
inline constexpr const char* kChoosingCenters = "Select Initial Cluster Center";
inline constexpr const char* kGeneratingResultFile = "Generating result file";

// A stage text taken apart. Inside the iteration loop every stage is
// prefixed with the rounds so far, run together ("Select Initial Cluster
// Center1times iteration2times iterationSplit" in round 2); only the last
// round number and the stage itself are worth showing.
struct StageText {
    int iteration = 0;  // 0 outside the loop
    std::string name;
};
StageText ParseStageText(const std::string& text);

// The run's overall progress, 0..100, from a stage and its own percentage:
// the initial centres and first pass take the first tenth, the iterations
// (of which there are at most `iterations`) the next six, and the labelling
// of the full-size input the last three. Not monotonic by itself: a shower
// of progress never lets it go back.
double OverallPercent(const StageText& stage, double percent, int iterations);

} // namespace isodata

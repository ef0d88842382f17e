// Execute: the parameter check in front of the run driver, and the line no
// exception crosses on its way back to the host.
#include "ISODataClassification.h"

#include "ProgressBridge.h"
#include "RunDriver.h"

#include "Progress.h"

#include <boost/any.hpp>

#include <typeinfo>

namespace isodata {

namespace {

constexpr int kWrongParameterTypeError = 100;

// Whatever throws inside (memory running out outside the engine, a host's
// progress slot) ends the run as a failure: the host calls through a plain
// virtual table and cannot be asked to catch C++ exceptions from a plug-in.
// Success or not, the host sees the run end at 100 %.
template <class Run>
bool ExecuteChecked(KalAlgo::IKalAlgo& algorithm, bool slotHoldsRecord, Run&& run) {
    if (!slotHoldsRecord) return false;
    bool succeeded = false;
    try {
        succeeded = run() == RunResult::Success;
    } catch (...) {
    }
    try {
        EmitProgress(&algorithm, 100.0, QString(""));
    } catch (...) {
    }
    return succeeded;
}

} // namespace

ISODataClassification::~ISODataClassification() = default;

bool ISODataClassification::Execute() {
    bool holds = false;
    try {
        holds = !m_params.empty() && m_params.type() == typeid(stInfoClassificationISO);
        if (!holds) {
            m_nErrorNo = kWrongParameterTypeError;
            m_strErrorInfo = Translate(kFrameContext, kWrongParameterType);
        }
    } catch (...) {
        holds = false;
    }
    return ExecuteChecked(*this, holds, [this] { return RunClassification(*this); });
}

ISODataClassificationRun::~ISODataClassificationRun() = default;

bool ISODataClassificationRun::Execute() {
    bool holds = false;
    try {
        holds = !m_params.empty() && m_params.type() == typeid(stIsodataRun);
        if (!holds) {
            m_nErrorNo = kWrongParameterTypeError;
            m_strErrorInfo = Translate(kFrameContext, kWrongRunParameterType);
        }
    } catch (...) {
        holds = false;
    }
    return ExecuteChecked(*this, holds, [this] {
        stIsodataRun& run = boost::any_cast<stIsodataRun&>(m_params);
        run.report = stIsodataRunReport();
        const RunResult result = RunClassification(*this, run.params, run.options, &run.report);
        run.report.resultCode = static_cast<std::int32_t>(result);
        return result;
    });
}

} // namespace isodata

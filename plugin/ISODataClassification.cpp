// Execute: the parameter check in front of the run driver, and the line no
// exception crosses on its way back to the host.
#include "ISODataClassification.h"

#include "ProgressBridge.h"
#include "RunDriver.h"

#include "Progress.h"

#include <typeinfo>

namespace isodata {

namespace {
constexpr int kWrongParameterTypeError = 100;
}

ISODataClassification::~ISODataClassification() = default;

// Whatever throws below (memory running out outside the engine, a host's
// progress slot) ends the run as a failure: the host calls through a plain
// virtual table and cannot be asked to catch C++ exceptions from a plug-in.
bool ISODataClassification::Execute() {
    try {
        if (m_params.empty() || m_params.type() != typeid(stInfoClassificationISO)) {
            m_nErrorNo = kWrongParameterTypeError;
            m_strErrorInfo = Translate(kFrameContext, kWrongParameterType);
            return false;
        }
    } catch (...) {
        return false;
    }
    bool succeeded = false;
    try {
        succeeded = RunClassification(*this) == RunResult::Success;
    } catch (...) {
    }
    // Success or not, the host sees the run end at 100 %.
    try {
        EmitProgress(this, 100.0, QString(""));
    } catch (...) {
    }
    return succeeded;
}

} // namespace isodata

// Execute: the parameter check in front of the run driver.
#include "ISODataClassification.h"

#include "ProgressBridge.h"
#include "RunDriver.h"

#include "Progress.h"

#include <typeinfo>

namespace isodata {

namespace {
constexpr int kWrongParameterType = 100;
}

ISODataClassification::~ISODataClassification() = default;

bool ISODataClassification::Execute() {
    if (m_params.empty() || m_params.type() != typeid(stInfoClassificationISO)) {
        m_nErrorNo = kWrongParameterType;
        m_strErrorInfo = Translate(kFrameContext, "Type is Not stInfoClassificationISO!");
        return false;
    }
    const RunResult result = RunClassification(*this);
    // Success or not, the host sees the run end at 100 %.
    EmitProgress(this, 100.0, QString(""));
    return result == RunResult::Success;
}

} // namespace isodata

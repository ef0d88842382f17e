// The algorithm base class: storage for the name, description, id, parameter
// record and last error that the host reads and writes through the virtual
// table.
#include "KalAlgo.h"

namespace KalAlgo {

IKalAlgo::IKalAlgo() = default;
IKalAlgo::~IKalAlgo() = default;

QString IKalAlgo::GetID() { return m_strID; }
QString IKalAlgo::GetName() { return m_strName; }
void IKalAlgo::SetName(const QString& name) { m_strName = name; }
QString IKalAlgo::GetDescription() { return m_strDescription; }
void IKalAlgo::SetDescription(const QString& description) { m_strDescription = description; }
boost::any& IKalAlgo::GetParams() { return m_params; }
void IKalAlgo::SetParams(boost::any& params) { m_params = params; }

void IKalAlgo::GetErrorInfo(int& number, QString& text) {
    number = m_nErrorNo;
    text = m_strErrorInfo;
}

void IKalAlgo::SetErrorInfo(int number, const QString& text) {
    m_nErrorNo = number;
    m_strErrorInfo = text;
}

// The host forwards a user's cancel request here, but it keeps no cancel
// state that a running Execute could poll, so there is nothing to record.
void IKalAlgo::Cancel() {}

} // namespace KalAlgo

// The host's algorithm framework: the base class every algorithm plug-in
// object derives from.
#pragma once

#include "KalUtility.h"

#include <QString>
#include <boost/any.hpp>
#include <boost/signals2/signal.hpp>

#include <cstdint>

namespace KalAlgo {

class KAL_API IKalAlgo : public KalUtility::CRef {
public:
    // (percent 0..100, stage text, sender). The default combiner returns the
    // last slot's value, or nothing when no slot is connected.
    using ProgressSignal = boost::signals2::signal<int(double, const QString&, void*)>;

    IKalAlgo();
    ~IKalAlgo() override;

    // The virtual operations, in the order of the host's virtual table.
    virtual QString GetID();
    virtual QString GetName();
    virtual void SetName(const QString& name);
    virtual QString GetDescription();
    virtual void SetDescription(const QString& description);
    virtual boost::any& GetParams();
    virtual void SetParams(boost::any& params);
    virtual void GetErrorInfo(int& number, QString& text);
    virtual void SetErrorInfo(int number, const QString& text);
    virtual bool Execute() = 0;
    // The host's cancel request; the base does nothing with it.
    virtual void Cancel();

    ProgressSignal m_sigProgress;

protected:
    std::int32_t m_nErrorNo = 0;
    QString m_strErrorInfo;
    boost::any m_params;
    QString m_strName;
    QString m_strDescription;
    QString m_strID;
};

} // namespace KalAlgo

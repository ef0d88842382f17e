// The translation call and the stage progress reporter.
#include "Progress.h"

#include <QCoreApplication>

namespace isodata {

QString Translate(const char* context, const char* sourceText) {
    return QCoreApplication::translate(context, sourceText, nullptr, -1);
}

StageProgress::StageProgress(ProgressFn callback, void* userData, const QString& text)
    : callback_(callback), userData_(userData), text_(text), utf8_(text.toUtf8()) {}

void StageProgress::Report(double percent) const {
    if (callback_) callback_(percent, utf8_.constData(), userData_);
}

} // namespace isodata

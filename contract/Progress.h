// Progress as the engine and the result output report it: a plain callback,
// an opaque user pointer and the current stage text, plus the translation
// call every user-visible text goes through. The run driver hands the
// callback to the engine; the texts come from StageTexts.h.
#pragma once

#include "StageTexts.h"

#include <QString>

namespace isodata {

// (percent 0..100, NUL-terminated UTF-8 stage text, user pointer). The text is
// valid only during the call.
using ProgressFn = int (*)(double percent, const char* text, void* userData);

// QCoreApplication::translate without disambiguation; without an installed
// translator the English source text comes back.
QString Translate(const char* context, const char* sourceText);

// One stage's progress reporter. The callback's answer is ignored on purpose:
// once started, a run always goes to its end.
class StageProgress {
public:
    StageProgress(ProgressFn callback, void* userData, const QString& text);

    void Report(double percent) const;
    const QString& Text() const { return text_; }
    ProgressFn Callback() const { return callback_; }
    void* UserData() const { return userData_; }

private:
    ProgressFn callback_;
    void* userData_;
    QString text_;
    QByteArray utf8_;
};

// Reports 0, then advances by 100 / steps at each Step().
class SteppedProgress {
public:
    SteppedProgress(const StageProgress& stage, double step) : stage_(stage), step_(step) {}
    void Start() { stage_.Report(0.0); }
    void Step() {
        done_ += step_;
        stage_.Report(done_);
    }

private:
    const StageProgress& stage_;
    double step_;
    double done_ = 0.0;
};

} // namespace isodata

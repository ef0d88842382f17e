// Progress emission through the algorithm object's signal.
#include "ProgressBridge.h"

namespace isodata {

void EmitProgress(KalAlgo::IKalAlgo* algorithm, double progress, const QString& text) {
    (void)algorithm->m_sigProgress(progress, text, algorithm);
}

int ProgressCallback(double percent, const char* text, void* userData) {
    if (!userData) return 0;
    EmitProgress(static_cast<KalAlgo::IKalAlgo*>(userData), percent,
                 text ? QString::fromUtf8(text) : QString(""));
    return 1;
}

} // namespace isodata

// From the engine's plain progress callback to the algorithm object's
// progress signal.
#pragma once

#include <KalAlgo.h>

#include <QString>

namespace isodata {

// Emits the object's progress signal; the combined slot result is dropped.
void EmitProgress(KalAlgo::IKalAlgo* algorithm, double progress, const QString& text);

// The callback handed to the engine: userData is the algorithm object. Returns
// 0 and emits nothing without one, 1 otherwise. It never asks to stop.
int ProgressCallback(double percent, const char* text, void* userData);

} // namespace isodata

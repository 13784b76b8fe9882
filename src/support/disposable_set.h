// The process-wide registry of live disposable objects, reported at exit.
#pragma once

#include "norvane/disposable.h"

namespace QxUtils {

void RegisterDisposable(const ::IDisposable* object);
void UnregisterDisposable(const ::IDisposable* object);
// Writes the report of objects that remain (what the exit handler writes); does
// nothing when none was ever created.
void ReportRemainingDisposables();

}  // namespace QxUtils

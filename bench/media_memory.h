#pragma once

#include "bench_support.h"

// The parts of the media memory bench. Each puts its rows into a table and gives false when it could not be measured.
bool MeasureBlocks(bench::Table& table);
bool MeasurePictures(bench::Table& table);

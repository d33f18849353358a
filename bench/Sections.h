#pragma once

namespace Tolvar::Bench {

// Each measures and prints its section of the table.
void MeasureFill();
void MeasureStart();
void MeasureBlocks();
void MeasureHandOver();

}  // namespace Tolvar::Bench

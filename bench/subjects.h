// The subjects: each function measures one and prints its part of the table.
#pragma once

namespace bench {

void measureAgent();
void measureExchange();
void measureListExchange();
void measurePlant();
void measureReading();
void measureUsbEvents();
void measureWriting();

}  // namespace bench

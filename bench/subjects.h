// The subjects: each function measures one and prints its part of the table.
#pragma once

#include <chrono>

namespace bench {

void measureAgent();
void measureCpp();
void measureExchange();
void measureListExchange();
void measureLoading();
void measurePlant();
void measureReading();
void measureRecording();
void measureRequests();
void measureTap();
void measureUsbEvents();
void measureWriting();

/// How long measureRecording() runs.
void setRecordingLength(std::chrono::seconds length);

}  // namespace bench

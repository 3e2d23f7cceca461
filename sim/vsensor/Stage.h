// One stage of the virtual sensor's pipeline. Each reads the ISP's values it
// names from the key list, decides its part of the frame in prepare (every
// stage's prepare runs before any stage's process), then acts on or measures
// the pixels in process, in the pipeline's order.
#pragma once

#include <memory>
#include <vector>

#include "sim/vsensor/FrameContext.h"

namespace sim {
namespace vsensor {

class Stage {
public:
    virtual ~Stage() = default;
    virtual const char* name() const = 0;
    virtual void prepare(FrameContext&) {}
    virtual void process(FrameContext&) {}
    // Bytes of the buffers and tables the stage keeps between frames.
    virtual size_t memoryBytes() const { return 0; }
};

std::unique_ptr<Stage> makeDayNightStage();
std::unique_ptr<Stage> makeGeometryStage();
std::unique_ptr<Stage> makeLensStage();
std::unique_ptr<Stage> makeSceneLightStage();
std::unique_ptr<Stage> makeExposureStage();
std::unique_ptr<Stage> makeWhiteBalanceStage();
std::unique_ptr<Stage> makeNoiseStage();
std::unique_ptr<Stage> makeWdrDefogStage();
std::unique_ptr<Stage> makeToneColourStage();
std::unique_ptr<Stage> makeSharpenStage();
std::unique_ptr<Stage> makeMirrorStage();

// The WDR and defog part of the tone curve, for x relative to the normal
// clip (defined beside the stage that sets its parameters).
double wdrDefogCurve(double x, double headroom, double wdrA, double defogFloor);

// The ISP's gain value 0..100 as a linear factor (0.6 dB a step).
double gainFactor(double gainValue);

} // namespace vsensor
} // namespace sim

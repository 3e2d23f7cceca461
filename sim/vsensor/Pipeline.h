// The one place that orders the virtual sensor's stages, and the renderer
// that owns their buffers and the state their loops keep between frames.
#pragma once

#include <memory>
#include <vector>

#include "sim/VirtualSensor.h"
#include "sim/vsensor/Stage.h"

namespace sim {
namespace vsensor {

class Pipeline {
public:
    Pipeline();
    // Renders frame `number` of size w x h into frame (rgb and read-outs).
    void render(const IspView& isp, const Conditions& conditions, uint64_t number, int w, int h,
                Frame& frame);
    // Restarts every loop (exposure, white balance, focus, temporal NR).
    void resetLoops();
    // Bytes the renderer holds now (buffers, scene cache, tables).
    size_t memoryBytes() const;

private:
    std::vector<std::unique_ptr<Stage>> m_stages;
    LoopState m_state;
    SceneCache m_scene;
    std::vector<uint16_t> m_linear;
    std::vector<uint16_t> m_scratch;
};

} // namespace vsensor
} // namespace sim

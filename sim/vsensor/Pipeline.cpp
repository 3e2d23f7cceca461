#include "sim/vsensor/Pipeline.h"

namespace sim {
namespace vsensor {

// Every stage prepares in this order (each may use what the ones before it
// decided), then every stage processes in the same order: the capture first,
// the meters on the raw signal, the lens on the linear picture, then tone and
// colour to 8 bits, noise reduction, sharpening and the mirror. From tone and
// colour on the stages work row by row: each publishes its step in the
// context and the sharpening stage pulls every row through them.
Pipeline::Pipeline() {
    m_stages.push_back(makeDayNightStage());
    m_stages.push_back(makeGeometryStage());
    m_stages.push_back(makeSceneLightStage());
    m_stages.push_back(makeExposureStage());
    m_stages.push_back(makeWhiteBalanceStage());
    m_stages.push_back(makeLensStage());
    m_stages.push_back(makeWdrDefogStage());
    m_stages.push_back(makeToneColourStage());
    m_stages.push_back(makeNoiseStage());
    m_stages.push_back(makeSharpenStage());
    m_stages.push_back(makeMirrorStage());
}

void Pipeline::render(const IspView& isp, const Conditions& conditions, uint64_t number, int w,
                      int h, Frame& frame) {
    FrameContext ctx(isp, m_state, m_scene);
    ctx.conditions = conditions;
    ctx.frameNumber = number;
    ctx.width = w;
    ctx.height = h;
    frame.rgb.resize(static_cast<size_t>(w) * h * 3);
    ctx.linear = &m_linear;
    ctx.scratch = &m_scratch;
    ctx.out = &frame.rgb;
    // The plain row steps; the stages that change a row replace them.
    const size_t rowLen = static_cast<size_t>(w) * 3;
    ctx.linearRow = [&ctx, rowLen](int y) { return ctx.linear->data() + y * rowLen; };
    for (auto& stage : m_stages)
        stage->prepare(ctx);
    for (auto& stage : m_stages)
        stage->process(ctx);

    frame.width = w;
    frame.height = h;
    frame.number = number;
    frame.lux = conditions.lux;
    frame.shutter = ctx.shutterValue;
    frame.gain = ctx.gainValue;
    frame.iris = ctx.irisValue;
    frame.measuredLevel = ctx.measuredLevel;
    frame.irCutOut = ctx.irCutOut;
    frame.focusPosition = static_cast<uint32_t>(ctx.focusPosition + 0.5);
}

void Pipeline::resetLoops() {
    m_state = LoopState();
}

size_t Pipeline::memoryBytes() const {
    size_t bytes = (m_linear.capacity() + m_scratch.capacity()) * sizeof(uint16_t) +
                   m_scene.refl.capacity() + m_scene.ir.capacity() + m_scene.cls.capacity() +
                   m_state.previous.capacity();
    for (const auto& stage : m_stages)
        bytes += stage->memoryBytes();
    return bytes;
}

} // namespace vsensor
} // namespace sim

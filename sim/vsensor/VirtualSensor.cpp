// The virtual sensor's public face: settings, the frame counter, the render
// thread that serves subscribers, and the ISP's light meter with its
// automatic day/night decision.
//
// Locks: m_settings guards the settings and the latest frame, m_render one
// render at a time (the pipeline's state), m_subscribers the callbacks and
// the render thread, m_meter the light meter. None is held while another is
// taken except m_render then m_settings; the ISP's own lock is taken inside
// them (never the other way round) and no controller lock at all.
#include "sim/VirtualSensor.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "host/KPDeviceTime.h"
#include "host/ia_ioctrl_v2.h"
#include "sim/SimHost.h"
#include "sim/SimIsp.h"
#include "sim/vsensor/IspView.h"
#include "sim/vsensor/Pipeline.h"

namespace sim {

namespace {

constexpr double kDefaultFrameRate = 25.0;
// Thresholds and sensitivity when the ISP holds none (the sample style's
// defaults), and the switch delay.
constexpr uint32_t kDefaultDayToNight = 20;
constexpr uint32_t kDefaultNightToDay = 40;
constexpr uint32_t kDefaultSensitivity = 3;
constexpr uint32_t kDefaultDelay = 5;

// A wait of `seconds` of simulated time, scaled like every host wait; at
// least a millisecond, so that a scale of 0 never spins. Returns early when
// stop becomes true.
void scaledWait(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, double seconds,
                const bool& stop) {
    const double real = std::max(seconds * timeScale(), 0.001);
    cv.wait_for(lock, std::chrono::duration<double>(real), [&] { return stop; });
}

bool minutesBetween(int now, int from, int to) {
    if (from == to)
        return false;
    if (from < to)
        return now >= from && now < to;
    return now >= from || now < to;
}

// A limit as a reader types it: "200000", "0.5".
std::string numberText(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

} // namespace

struct VirtualSensor::Impl {
    int channel = 0;

    mutable std::mutex settings;
    int width = kDefaultWidth;
    int height = kDefaultHeight;
    bool fixedLight = false;
    double lux = 0.0;
    double fog = 0.0;
    double shake = 0.0;
    uint64_t next = 0;
    Frame latest;

    std::mutex render;
    vsensor::Pipeline pipeline;

    mutable std::mutex subscribers;
    std::condition_variable subscribersCv;
    std::map<int, FrameCallback> callbacks;
    int nextHandle = 1;
    std::thread renderThread;
    // Each render thread has its own stop flag, so that a thread still ending
    // never mistakes a new subscription's start for its own.
    std::shared_ptr<bool> stopRender;
    // Held while callbacks run, so that unsubscribe waits for one in progress.
    std::mutex calling;

    mutable std::mutex meter;
    std::condition_variable meterCv;
    std::thread meterThread;
    bool meterRunning = false;
    std::shared_ptr<bool> stopMeter;
    std::deque<double> levels;
    uint32_t pendingSeconds = 0;
    double measured = 0.0;

    double illuminance() const {
        {
            std::lock_guard<std::mutex> lock(settings);
            if (fixedLight)
                return lux;
        }
        const KPDateTime now = KPDeviceTime::getCurrentTime();
        return dayCurveLux(now.hour, now.minute, now.second);
    }
};

VirtualSensor& VirtualSensor::forChannel(int ispChannel) {
    static std::mutex mutex;
    // Never destroyed: a render or meter thread may outlive static destruction.
    static auto* sensors = new std::map<int, VirtualSensor*>;
    std::lock_guard<std::mutex> lock(mutex);
    VirtualSensor*& sensor = (*sensors)[ispChannel];
    if (sensor == nullptr)
        sensor = new VirtualSensor(ispChannel);
    return *sensor;
}

VirtualSensor::VirtualSensor(int ispChannel) : m_pImpl(new Impl) {
    m_pImpl->channel = ispChannel;
}

VirtualSensor::~VirtualSensor() {
    stopLightMeter();
    delete m_pImpl;
}

void VirtualSensor::reset() {
    std::lock_guard<std::mutex> renderLock(m_pImpl->render);
    {
        std::lock_guard<std::mutex> lock(m_pImpl->settings);
        m_pImpl->width = kDefaultWidth;
        m_pImpl->height = kDefaultHeight;
        m_pImpl->fixedLight = false;
        m_pImpl->lux = 0.0;
        m_pImpl->fog = 0.0;
        m_pImpl->shake = 0.0;
        m_pImpl->next = 0;
        m_pImpl->latest = Frame();
    }
    m_pImpl->pipeline.resetLoops();
    std::lock_guard<std::mutex> meterLock(m_pImpl->meter);
    m_pImpl->levels.clear();
    m_pImpl->pendingSeconds = 0;
    m_pImpl->measured = 0.0;
}

bool VirtualSensor::setFrameSize(int width, int height, std::string& error) {
    if (width < kMinWidth || height < kMinHeight || width > kMaxWidth || height > kMaxHeight ||
        width % 2 != 0 || height % 2 != 0) {
        error = "frame size " + std::to_string(width) + "x" + std::to_string(height) +
                " refused: width and height must be even, from " + std::to_string(kMinWidth) + "x" +
                std::to_string(kMinHeight) + " to " + std::to_string(kMaxWidth) + "x" +
                std::to_string(kMaxHeight);
        return false;
    }
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    m_pImpl->width = width;
    m_pImpl->height = height;
    error.clear();
    return true;
}

int VirtualSensor::width() const {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    return m_pImpl->width;
}

int VirtualSensor::height() const {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    return m_pImpl->height;
}

bool VirtualSensor::setIlluminance(double lux, std::string& error) {
    if (!(lux >= kMinLux && lux <= kMaxLux)) {
        error = "illuminance " + std::to_string(lux) + " lux refused: it must lie from " +
                numberText(kMinLux) + " to " + numberText(kMaxLux) + " lux";
        return false;
    }
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    m_pImpl->fixedLight = true;
    m_pImpl->lux = lux;
    error.clear();
    return true;
}

void VirtualSensor::followDayCurve() {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    m_pImpl->fixedLight = false;
}

bool VirtualSensor::followsDayCurve() const {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    return !m_pImpl->fixedLight;
}

double VirtualSensor::illuminance() const {
    return m_pImpl->illuminance();
}

bool VirtualSensor::setFog(double density, std::string& error) {
    if (!(density >= 0.0 && density <= kMaxFog)) {
        error = "fog density " + std::to_string(density) + " refused: it must lie from 0 to " +
                numberText(kMaxFog);
        return false;
    }
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    m_pImpl->fog = density;
    error.clear();
    return true;
}

double VirtualSensor::fog() const {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    return m_pImpl->fog;
}

bool VirtualSensor::setShake(double pixels, std::string& error) {
    if (!(pixels >= 0.0 && pixels <= kMaxShake)) {
        error = "camera shake " + std::to_string(pixels) + " px refused: it must lie from 0 to " +
                numberText(kMaxShake) + " px";
        return false;
    }
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    m_pImpl->shake = pixels;
    error.clear();
    return true;
}

double VirtualSensor::shake() const {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    return m_pImpl->shake;
}

Frame VirtualSensor::renderFrame() {
    Frame frame;
    renderFrame(frame);
    return frame;
}

void VirtualSensor::renderFrame(Frame& frame) {
    std::lock_guard<std::mutex> renderLock(m_pImpl->render);
    vsensor::Conditions conditions;
    int w = 0;
    int h = 0;
    uint64_t number = 0;
    const double lux = m_pImpl->illuminance();
    {
        std::lock_guard<std::mutex> lock(m_pImpl->settings);
        w = m_pImpl->width;
        h = m_pImpl->height;
        number = m_pImpl->next++;
        conditions.fog = m_pImpl->fog;
        conditions.shake = m_pImpl->shake;
    }
    conditions.lux = lux;
    const vsensor::IspView isp = vsensor::IspView::capture(m_pImpl->channel);
    m_pImpl->pipeline.render(isp, conditions, number, w, h, frame);
    // Copied into the buffer the latest frame already has: no allocation,
    // and no page of it touched for the first time, once the size settles.
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    Frame& latest = m_pImpl->latest;
    std::vector<uint8_t> pixels = std::move(latest.rgb);
    pixels.assign(frame.rgb.begin(), frame.rgb.end());
    pixels.shrink_to_fit(); // after a smaller frame
    std::vector<uint8_t> drawn = std::move(frame.rgb);
    latest = frame; // the read-outs; both pixel buffers are aside
    frame.rgb = std::move(drawn);
    latest.rgb = std::move(pixels);
}

uint64_t VirtualSensor::nextFrameNumber() const {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    return m_pImpl->next;
}

void VirtualSensor::setNextFrameNumber(uint64_t number) {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    m_pImpl->next = number;
}

Frame VirtualSensor::latestFrame() const {
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    return m_pImpl->latest;
}

double VirtualSensor::frameRate() const {
    uint32_t fps = 0;
    if (!Isp::instance().getValue(m_pImpl->channel,
                                  static_cast<int>(sensor_keys::commandOf(KEY_SENSOR_FPS)), fps) ||
        fps < 1 || fps > 60)
        return kDefaultFrameRate;
    return fps;
}

size_t VirtualSensor::rendererMemoryBytes() const {
    std::lock_guard<std::mutex> renderLock(m_pImpl->render);
    std::lock_guard<std::mutex> lock(m_pImpl->settings);
    return m_pImpl->pipeline.memoryBytes() + m_pImpl->latest.rgb.capacity();
}

int VirtualSensor::subscribe(FrameCallback callback) {
    std::lock_guard<std::mutex> lock(m_pImpl->subscribers);
    const int handle = m_pImpl->nextHandle++;
    {
        std::lock_guard<std::mutex> calling(m_pImpl->calling);
        m_pImpl->callbacks.emplace(handle, std::move(callback));
    }
    if (!m_pImpl->renderThread.joinable()) {
        auto stop = std::make_shared<bool>(false);
        m_pImpl->stopRender = stop;
        m_pImpl->renderThread = std::thread([this, stop] {
            std::unique_lock<std::mutex> wait(m_pImpl->subscribers);
            // One buffer for every frame the thread draws.
            Frame frame;
            while (!*stop) {
                wait.unlock();
                renderFrame(frame);
                {
                    std::lock_guard<std::mutex> calling(m_pImpl->calling);
                    for (auto& entry : m_pImpl->callbacks)
                        entry.second(frame);
                }
                const double period = 1.0 / frameRate();
                wait.lock();
                scaledWait(m_pImpl->subscribersCv, wait, period, *stop);
            }
        });
    }
    return handle;
}

void VirtualSensor::unsubscribe(int handle) {
    std::thread finished;
    {
        std::lock_guard<std::mutex> lock(m_pImpl->subscribers);
        {
            std::lock_guard<std::mutex> calling(m_pImpl->calling);
            if (m_pImpl->callbacks.erase(handle) == 0)
                return;
        }
        if (m_pImpl->callbacks.empty() && m_pImpl->renderThread.joinable()) {
            *m_pImpl->stopRender = true;
            m_pImpl->subscribersCv.notify_all();
            finished = std::move(m_pImpl->renderThread);
        }
    }
    if (finished.joinable())
        finished.join();
}

int VirtualSensor::subscriberCount() const {
    std::lock_guard<std::mutex> lock(m_pImpl->subscribers);
    return static_cast<int>(m_pImpl->callbacks.size());
}

double VirtualSensor::lightLevelOf(double lux) {
    if (!(lux > 0.0))
        return 0.0;
    return std::clamp(20.0 * std::log10(lux) + 20.0, 0.0, 100.0);
}

void VirtualSensor::runLightMeter(int seconds) {
    if (seconds <= 0)
        return;
    const int ch = m_pImpl->channel;
    const double level = lightLevelOf(m_pImpl->illuminance());
    const vsensor::IspView isp = vsensor::IspView::capture(ch);
    Isp& objIsp = Isp::instance();

    uint32_t dayToNight = kDefaultDayToNight;
    uint32_t nightToDay = kDefaultNightToDay;
    const int thresholds = isp.newerOf(IA_CMD_DN_THR_D2N, IA_CMD_DN_THR_N2D);
    if (thresholds != 0) {
        const std::vector<uint32_t> words = isp.record(thresholds);
        if (words.size() >= 2) {
            dayToNight = words[0];
            nightToDay = words[1];
        }
    }
    uint32_t sensitivity = kDefaultSensitivity;
    const std::vector<uint32_t> sens = isp.record(IA_CMD_DN_SENSITIVITY);
    if (sens.size() >= 3 && sens[2] >= 1 && sens[2] <= 7)
        sensitivity = sens[2];
    const uint32_t delay = std::min<uint32_t>(3600, isp.value(KEY_DELAY, kDefaultDelay));
    const uint32_t mode = isp.value(KEY_DN_MODE, 0);
    const size_t window = 8 - sensitivity;

    std::lock_guard<std::mutex> lock(m_pImpl->meter);
    uint32_t state = objIsp.decidedDayNight(ch);
    for (int s = 0; s < seconds; ++s) {
        m_pImpl->levels.push_back(level);
        while (m_pImpl->levels.size() > window)
            m_pImpl->levels.pop_front();
        double sum = 0;
        for (double l : m_pImpl->levels)
            sum += l;
        const double average = sum / m_pImpl->levels.size();
        m_pImpl->measured = average;
        switch (mode) {
            case 0: {
                const bool crossing = state == 0 ? average < dayToNight : average > nightToDay;
                m_pImpl->pendingSeconds = crossing ? m_pImpl->pendingSeconds + 1 : 0;
                if (crossing && m_pImpl->pendingSeconds >= std::max<uint32_t>(1, delay)) {
                    state = state == 0 ? 1 : 0;
                    m_pImpl->pendingSeconds = 0;
                }
                break;
            }
            case 1:
                state = 0;
                break;
            case 2:
                state = 1;
                break;
            case 3: {
                // The switching times: the newest of the four time records
                // carries all four members.
                int newest = 0;
                for (int cmd = IA_CMD_DN_TIME_FIRST; cmd <= IA_CMD_DN_TIME_LAST; ++cmd)
                    newest = newest == 0 ? (isp.record(cmd).empty() ? 0 : cmd)
                                         : isp.newerOf(newest, cmd);
                std::vector<uint32_t> times = {18, 0, 6, 0};
                if (newest != 0 && isp.record(newest).size() >= 4)
                    times = isp.record(newest);
                const KPDateTime now = KPDeviceTime::getCurrentTime();
                state = minutesBetween(now.hour * 60 + now.minute,
                                       static_cast<int>(times[0] * 60 + times[1]),
                                       static_cast<int>(times[2] * 60 + times[3]))
                            ? 1
                            : 0;
                break;
            }
            default:
                break; // by alarm input: no alarm here, the state stays
        }
    }
    objIsp.setDecidedDayNight(ch, state);
}

void VirtualSensor::startLightMeter() {
    std::lock_guard<std::mutex> lock(m_pImpl->meter);
    if (m_pImpl->meterRunning)
        return;
    m_pImpl->meterRunning = true;
    auto stop = std::make_shared<bool>(false);
    m_pImpl->stopMeter = stop;
    m_pImpl->meterThread = std::thread([this, stop] {
        std::unique_lock<std::mutex> wait(m_pImpl->meter);
        while (!*stop) {
            wait.unlock();
            runLightMeter(1);
            wait.lock();
            scaledWait(m_pImpl->meterCv, wait, 1.0, *stop);
        }
    });
}

void VirtualSensor::stopLightMeter() {
    std::thread finished;
    {
        std::lock_guard<std::mutex> lock(m_pImpl->meter);
        if (!m_pImpl->meterRunning)
            return;
        *m_pImpl->stopMeter = true;
        m_pImpl->meterRunning = false;
        m_pImpl->meterCv.notify_all();
        finished = std::move(m_pImpl->meterThread);
    }
    if (finished.joinable())
        finished.join();
}

bool VirtualSensor::lightMeterRunning() const {
    std::lock_guard<std::mutex> lock(m_pImpl->meter);
    return m_pImpl->meterRunning;
}

double VirtualSensor::measuredLightLevel() const {
    std::lock_guard<std::mutex> lock(m_pImpl->meter);
    return m_pImpl->measured;
}

} // namespace sim

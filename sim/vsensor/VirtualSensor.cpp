// The virtual sensor's public face (a skeleton: frames are grey until the
// pipeline lands).
#include "sim/VirtualSensor.h"

#include <map>
#include <mutex>

namespace sim {

struct VirtualSensor::Impl {
    int channel = 0;
    mutable std::mutex mutex;
    int width = kDefaultWidth;
    int height = kDefaultHeight;
    uint64_t next = 0;
    Frame latest;
};

VirtualSensor& VirtualSensor::forChannel(int ispChannel) {
    static std::mutex mutex;
    static std::map<int, VirtualSensor*>* sensors = new std::map<int, VirtualSensor*>;
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
    delete m_pImpl;
}
void VirtualSensor::reset() {}
bool VirtualSensor::setFrameSize(int width, int height, std::string& error) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    error.clear();
    m_pImpl->width = width;
    m_pImpl->height = height;
    return true;
}
int VirtualSensor::width() const {
    return m_pImpl->width;
}
int VirtualSensor::height() const {
    return m_pImpl->height;
}
bool VirtualSensor::setIlluminance(double, std::string&) {
    return true;
}
void VirtualSensor::followDayCurve() {}
bool VirtualSensor::followsDayCurve() const {
    return true;
}
double VirtualSensor::illuminance() const {
    return 0;
}
bool VirtualSensor::setFog(double, std::string&) {
    return true;
}
double VirtualSensor::fog() const {
    return 0;
}
bool VirtualSensor::setShake(double, std::string&) {
    return true;
}
double VirtualSensor::shake() const {
    return 0;
}
Frame VirtualSensor::renderFrame() {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    Frame frame;
    frame.width = m_pImpl->width;
    frame.height = m_pImpl->height;
    frame.number = m_pImpl->next++;
    frame.rgb.assign(size_t(frame.width) * frame.height * 3, 128);
    m_pImpl->latest = frame;
    return frame;
}
uint64_t VirtualSensor::nextFrameNumber() const {
    return m_pImpl->next;
}
void VirtualSensor::setNextFrameNumber(uint64_t number) {
    m_pImpl->next = number;
}
Frame VirtualSensor::latestFrame() const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    return m_pImpl->latest;
}
double VirtualSensor::frameRate() const {
    return 25.0;
}
int VirtualSensor::subscribe(FrameCallback) {
    return 1;
}
void VirtualSensor::unsubscribe(int) {}
int VirtualSensor::subscriberCount() const {
    return 0;
}
void VirtualSensor::runLightMeter(int) {}
void VirtualSensor::startLightMeter() {}
void VirtualSensor::stopLightMeter() {}
bool VirtualSensor::lightMeterRunning() const {
    return false;
}
double VirtualSensor::measuredLightLevel() const {
    return 0;
}
double VirtualSensor::lightLevelOf(double) {
    return 0;
}

FrameStats measureFrame(const Frame&, int, int, int, int) {
    return FrameStats();
}
std::vector<uint8_t> lumaOf(const Frame&) {
    return {};
}
std::vector<uint8_t> toI420(const Frame&) {
    return {};
}
std::string toPpm(const Frame&) {
    return {};
}
double dayCurveLux(int, int, int) {
    return 0;
}
bool jpegAvailable() {
    return false;
}
bool encodeJpeg(const Frame&, int, std::vector<uint8_t>&, std::string& error) {
    error = "this build has no JPEG encoder";
    return false;
}

} // namespace sim

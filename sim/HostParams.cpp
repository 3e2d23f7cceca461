// The simulated host's parameter records and video pipeline.
#include <map>
#include <mutex>

#include "host/SensorZoomFocusParam.h"
#include "host/VideoStreamModule.h"
#include "sim/SimHost.h"

SensorZoomFocusParam::SensorZoomFocusParam()
    : m_bLockZoomFocus(false), m_nZoomPosition(0), m_nFocusPosition(0) {}

bool SensorZoomFocusParam::getLockZoomFocusEnable() const {
    return m_bLockZoomFocus;
}

void SensorZoomFocusParam::setLockZoomFocusEnable(bool enable) {
    m_bLockZoomFocus = enable;
}

int SensorZoomFocusParam::getZoomPosition() const {
    return m_nZoomPosition;
}

void SensorZoomFocusParam::setZoomPosition(int position) {
    m_nZoomPosition = position;
}

int SensorZoomFocusParam::getFocusPosition() const {
    return m_nFocusPosition;
}

void SensorZoomFocusParam::setFocusPosition(int position) {
    m_nFocusPosition = position;
}

AVStreamParam::AVStreamParam() : m_nFrameRate(25), m_nEncoderType(0), m_nHeight(1080) {}

int AVStreamParam::getFrameRate() const {
    return m_nFrameRate;
}

int AVStreamParam::getVideoEncoderType() const {
    return m_nEncoderType;
}

int AVStreamParam::getVideoHeight() const {
    return m_nHeight;
}

void AVStreamParam::setFrameRate(int fps) {
    m_nFrameRate = fps;
}

void AVStreamParam::setVideoEncoderType(int type) {
    m_nEncoderType = type;
}

void AVStreamParam::setVideoHeight(int height) {
    m_nHeight = height;
}

VideoStreamModule::~VideoStreamModule() = default;

namespace sim {

// The pipeline's interface is const; its record is not, hence the mutable state.
struct SimVideoStreamModule::Impl {
    mutable std::mutex mutex;
    mutable std::vector<Notice> notices;
    int result = 0;
    std::map<int, int> keyResults;
    std::vector<AVStreamParam> streams{AVStreamParam()};
};

SimVideoStreamModule::SimVideoStreamModule() : m_pImpl(new Impl) {}

SimVideoStreamModule::~SimVideoStreamModule() {
    delete m_pImpl;
}

int SimVideoStreamModule::notifySensorParam(int channel, int key, int value) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->notices.push_back(Notice{channel, key, value});
    const auto it = m_pImpl->keyResults.find(key);
    return it != m_pImpl->keyResults.end() ? it->second : m_pImpl->result;
}

bool SimVideoStreamModule::getAVStreamParams(std::vector<AVStreamParam>& streams) const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    streams = m_pImpl->streams;
    return true;
}

void SimVideoStreamModule::setResult(int result) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->result = result;
}

void SimVideoStreamModule::setResultForKey(int key, int result) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->keyResults[key] = result;
}

void SimVideoStreamModule::setStreams(const std::vector<AVStreamParam>& streams) {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->streams = streams;
}

std::vector<SimVideoStreamModule::Notice> SimVideoStreamModule::notices() const {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    return m_pImpl->notices;
}

std::vector<SimVideoStreamModule::Notice> SimVideoStreamModule::takeNotices() {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    std::vector<Notice> out;
    out.swap(m_pImpl->notices);
    return out;
}

void SimVideoStreamModule::clearNotices() {
    std::lock_guard<std::mutex> lock(m_pImpl->mutex);
    m_pImpl->notices.clear();
}

} // namespace sim

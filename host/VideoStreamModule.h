// The host's video pipeline, as the sensor controller sees it.
#pragma once

#include <vector>

// One encoded stream's parameters.
class AVStreamParam {
public:
    AVStreamParam();
    int getFrameRate() const;
    int getVideoEncoderType() const;
    int getVideoHeight() const;
    void setFrameRate(int fps);
    void setVideoEncoderType(int type);
    void setVideoHeight(int height);

private:
    int m_nFrameRate;
    int m_nEncoderType;
    int m_nHeight;
};

class VideoStreamModule {
public:
    virtual ~VideoStreamModule();
    // Tells the pipeline that a sensor setting changed; 0 on success.
    virtual int notifySensorParam(int channel, int key, int value) const = 0;
    // The parameters of every stream the pipeline encodes.
    virtual bool getAVStreamParams(std::vector<AVStreamParam>& streams) const = 0;
};

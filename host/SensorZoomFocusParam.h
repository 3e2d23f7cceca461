// The host's record of the lens's zoom and focus settings and its lock.
#pragma once

class SensorZoomFocusParam {
public:
    SensorZoomFocusParam();
    // While the lock is on, lens commands (0x600 to 0x650) are not sent.
    bool getLockZoomFocusEnable() const;
    void setLockZoomFocusEnable(bool enable);
    int getZoomPosition() const;
    void setZoomPosition(int position);
    int getFocusPosition() const;
    void setFocusPosition(int position);

private:
    bool m_bLockZoomFocus;
    int m_nZoomPosition;
    int m_nFocusPosition;
};

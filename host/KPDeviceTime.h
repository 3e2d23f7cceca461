// The host's device clock.
#pragma once

struct KPDateTime {
    int year;
    int month;
    int day;
    int hour;
    int minute;
    int second;
};

class KPDeviceTime {
public:
    static KPDateTime getCurrentTime();
};

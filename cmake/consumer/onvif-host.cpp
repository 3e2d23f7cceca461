// A host's ONVIF daemon in miniature, built against the installed
// libsensor-onvif alone: one endpoint, the imaging service of one controller,
// one request answered.
#include <cstdio>

#include "controller/ISensorController.h"
#include "sensor-onvif/ImagingService.h"
#include "sensor-onvif/Soap.h"

int main() {
    ISensorController* pController = new ISensorController();
    pController->setChannelID(1);
    sensor_onvif::SoapEndpoint endpoint("admin", "secret", [] { return 0LL; });
    {
        sensor_onvif::ImagingService imaging(*pController);
        imaging.registerOn(endpoint);
        const sensor_onvif::HttpReply reply =
            endpoint.handle(sensor_onvif::ImagingService::kPath, "<a><b></a>");
        const bool bWellFormed = reply.body.find("ter:WellFormed") != std::string::npos;
        std::printf("onvif-host: HTTP %d, %s\n", reply.status,
                    bWellFormed ? "ter:WellFormed" : "unexpected fault");
        if (reply.status != 400 || !bWellFormed)
            return 1;
    }
    delete pController;
    return 0;
}

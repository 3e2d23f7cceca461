// A camera's host program in miniature, built against the installed package
// alone: the public header, one controller, the process-wide beaway switch.
#include <cstdio>

#include "controller/ISensorController.h"

int main() {
    setshowBeawayFalg(false);
    const bool bShown = getshowBeawayFalg();
    ISensorController* pController = new ISensorController();
    pController->setChannelID(1);
    delete pController;
    std::printf("host: beaway %s, KeyVal %u bytes\n", bShown ? "offered" : "withdrawn",
                static_cast<unsigned>(sizeof(KeyVal)));
    return bShown ? 1 : 0;
}

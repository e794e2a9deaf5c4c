// vrx-web: the page, the interface and the metrics of what vrx-sn has written.
#include "WebMain.h"

int main(int argc, char** argv) {
    return runWeb(argc, argv, ZTSWebPeriods{});
}

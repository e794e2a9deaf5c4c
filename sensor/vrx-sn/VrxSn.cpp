// vrx-sn: the sensor that runs all the time.
#include <cstdio>

int main() {
    fputs("vrx-sn: not yet\n", stderr);
    return 1;
}

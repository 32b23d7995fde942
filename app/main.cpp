#include "driver.h"

int main(int argc, char** argv) {
    return runCorebench(argc, argv);
}

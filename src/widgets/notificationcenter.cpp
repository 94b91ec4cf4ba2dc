// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXNotificationCenter.h>

TXNotificationCenter *TXNotificationCenter::defaultCenter() {
    static auto *center = new TXNotificationCenter; // windows may close while static objects are destroyed
    return center;
}

#include "boot/fat32_volume.h"

#include <algorithm>

#include "disk/byte_order.h"
#include "support/run.h"

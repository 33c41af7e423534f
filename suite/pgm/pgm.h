// The programmer library: design files, the device database with each die's section tree, the
// chain element that reads a design for a device, and the shared CRC-16.
#pragma once

#include "pgm_chain_element.h"
#include "pgm_common.h"
#include "pgm_design.h"
#include "pgm_device.h"
#include "pgm_pcf.h"
#include "pgm_sof.h"
#include "pgmio_bit_vector.h"

// The library entry moved with the public headers; in-tree code may keep including it here.
#pragma once

#include "fbc/FBC_dll.h"

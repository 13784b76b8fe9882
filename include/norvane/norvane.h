// Everything the library exports.
#pragma once

#include "norvane/export.h"
#include "norvane/platform.h"
#include "norvane/com.h"
#include "norvane/disposable.h"
#include "norvane/values.h"
#include "norvane/transport.h"
#include "norvane/interfaces.h"
#include "norvane/ipp.h"
#include "norvane/datamap.h"
#include "norvane/cache.h"
#include "norvane/api.h"
#include "norvane/registry.h"

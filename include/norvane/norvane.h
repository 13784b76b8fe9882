// Everything the library exports.
#pragma once

#include "norvane/api.h"
#include "norvane/cache.h"
#include "norvane/com.h"
#include "norvane/datamap.h"
#include "norvane/disposable.h"
#include "norvane/export.h"
#include "norvane/interfaces.h"
#include "norvane/ipp.h"
#include "norvane/platform.h"
#include "norvane/registry.h"
#include "norvane/transport.h"
#include "norvane/values.h"

// Symbol visibility for the public surface. The library is built with hidden
// visibility; everything a host may name carries NORVANE_API, so that vtables and
// typeinfo of exported classes are shared with objects made in other modules.
#pragma once

#define NORVANE_API __attribute__((visibility("default")))

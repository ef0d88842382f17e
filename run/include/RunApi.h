// What the run library shows to its hosts: the shared library exports these
// names and nothing else, so hosts build on the headers of this folder alone.
#pragma once

#define ISODATA_RUN_API __attribute__((visibility("default")))

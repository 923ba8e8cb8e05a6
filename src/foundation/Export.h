#pragma once

// Marks the classes and functions that libquillet exports; everything else is
// built with hidden visibility and stays internal to the library.
#define QUILLET_EXPORT __attribute__((visibility("default")))

// The export mark of the class library (libKvClass.so): classes and free functions declared with
// KVCLASS_API are visible to programs that link it; everything else stays hidden.
#pragma once

#define KVCLASS_API __attribute__((visibility("default")))

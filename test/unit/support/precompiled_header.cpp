// The one object that the precompiled header of all unit test programs is built with.
#include <gtest/gtest.h>

// The order in which the units' globals are constructed, and in reverse destroyed.
//
// The last-error store outlives everything that may still write it while it shuts down, so
// `common` comes first. Link order alone does not hold this: link-time optimisation and object
// libraries change it, an explicit priority does not.
#pragma once

#define OSTREL_INIT_COMMON __attribute__((init_priority(210)))
#define OSTREL_INIT_CAMERA __attribute__((init_priority(220)))
#define OSTREL_INIT_DINO_LITE __attribute__((init_priority(230)))
#define OSTREL_INIT_OSTREL __attribute__((init_priority(240)))

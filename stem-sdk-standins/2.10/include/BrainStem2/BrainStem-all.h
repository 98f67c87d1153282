// Stand-in for BrainStem2 SDK 2.10 (see StandInDeclarations.h).
#pragma once

#define STANDIN_BRAINSTEM_MINOR 10
#include "../../../common/BrainStem2/StandInDeclarations.h"

// Stand-in for BrainStem2 SDK 2.9 (see StandInDeclarations.h).
#pragma once

#define STANDIN_BRAINSTEM_MINOR 9
#include "../../../common/BrainStem2/StandInDeclarations.h"

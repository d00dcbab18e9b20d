// prj/LiDAR/VR2proc/inv_input.h
// The registration data in the form of the inversion.
#pragma once
#include <vector>

#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Moves the vectors of sync into the input.
InvInput make_InvInput(const Project& prj, const SwathVector<SwRot>& rot,
                       const SwathVector<InvSamples>& samples, POsync& sync);

// Sets nfull of the pairs: the vectors that a pair between two lines stands for. Channels of a line see the
// same ground at the same time, so a swath has a pair with every channel of a line it crosses. Where these
// were skipped (-reg_reduce) or could not be registered, the pair that is there stands for them; the larger
// of the counts of its two swaths is taken.
void set_nfull(const SwathVector<InvSwath>& swaths, std::vector<InvPair>& pairs);
}  // namespace veld

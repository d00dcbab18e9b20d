#include "prj/LiDAR/VR2inv/VR2inv_internal.h"

namespace veld {
namespace {
// The slot of an entry of x; a new one unless both swaths touch the same entry.
int slot_of(PairSlots& slots, int entry) {
  for (int i = 0; i < slots.n; i++)
    if (slots.idx[i] == entry) return i;
  slots.idx[slots.n] = entry;
  return slots.n++;
}

void add(PairRow& row, int slot, double sign, const xyz& col) {
  if (slot < 0) return;
  row.cx[slot] += sign * col.x;
  row.cy[slot] += sign * col.y;
  row.cz[slot] += sign * col.z;
}
}  // namespace

PairSlots make_slots(const InvCalDrift& inv, int k, bool drift) {
  const InvPair& p = inv.in.pairs[k];
  const InvSwath &a = inv.in.swaths[p.sw1], &b = inv.in.swaths[p.sw2];
  PairSlots slots;
  slots.drift = drift;
  // Channels have groups of their own, behind that of channel 0: a relative calibration ties the channels of
  // one flight.
  const bool ext_ok = !inv.par.CALR || (!a.fixed && !b.fixed && a.group - a.channel == b.group - b.channel);
  for (int side = 0; side < 2; side++) {
    const SwState& s = inv.sw[side == 0 ? p.sw1 : p.sw2];
    for (int c = 0; c < N_EXTERNAL; c++)
      slots.ext[side][c] =
          s.mobile && s.ext_on && ext_ok && inv.FE[c] ? slot_of(slots, inv.ext0[c] + s.ext_set) : -1;
    for (int c = 0; c < N_INTERNAL; c++)
      slots.intl[side][c] = s.mobile && inv.FI[c] ? slot_of(slots, inv.int0[c] + s.int_set) : -1;
    for (int c = 0; c < 6; c++)
      slots.ta[side][c] =
          drift && s.mobile && s.node0 >= 0 && inv.FD[c] ? slot_of(slots, inv.node_entry(s.node0) + c) : -1;
  }
  if (inv.ShiftRef && a.fixed != b.fixed) {
    slots.shift_sign = a.fixed ? 1 : -1;
    slots.shift = slot_of(slots, inv.shift0);
    slot_of(slots, inv.shift0 + 1);
    slot_of(slots, inv.shift0 + 2);
  }
  return slots;
}

void comp_row(const InvCalDrift& inv, int k, const PairSlots& slots, uint64_t i, PairRow& row) {
  const InvPair& p = inv.in.pairs[k];
  for (int s = 0; s < slots.n; s++) row.cx[s] = row.cy[s] = row.cz[s] = 0;
  for (int side = 0; side < 2; side++) {
    const SwathId s = side == 0 ? p.sw1 : p.sw2;
    if (!inv.sw[s].mobile) continue;
    const double sign = side == 0 ? -1 : 1;
    if (inv.FCAL) {
      TrajFrame frame;
      GeomCols cols;
      comp_TrajFrame(side == 0 ? p.O1[i] : p.O2[i], side == 0 ? p.Att1[i] : p.Att2[i], inv.in.swaths[s].rot,
                     frame);
      comp_GeomCols(frame, to_xyz(p.P[i] - frame.O), inv.flags, cols);
      for (int c = 0; c < 3; c++) add(row, slots.ext[side][c], sign, cols.lever[c]);
      for (int c = 0; c < 3; c++) add(row, slots.ext[side][3 + c], sign, cols.bore[c]);
      for (int c = 0; c < N_INTERNAL; c++) add(row, slots.intl[side][c], sign, cols.internal[c]);
    }
    add(row, slots.ta[side][0], sign, {1, 0, 0});
    add(row, slots.ta[side][1], sign, {0, 1, 0});
    add(row, slots.ta[side][2], sign, {0, 0, 1});
    if (inv.drift_att && slots.drift) {
      const AttCols& A = inv.pair[k].A[side];
      add(row, slots.ta[side][3], sign, A.r[i]);
      add(row, slots.ta[side][4], sign, A.p[i]);
      add(row, slots.ta[side][5], sign, A.y[i]);
    }
  }
  if (slots.shift >= 0) {
    row.cx[slots.shift] += slots.shift_sign;
    row.cy[slots.shift + 1] += slots.shift_sign;
    row.cz[slots.shift + 2] += slots.shift_sign;
  }
}
}  // namespace veld

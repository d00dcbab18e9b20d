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
      comp_calib_cols(frame, to_xyz(place_in(p, side, i) - frame.O), inv.flags, inv.ncalint > 0, cols);
      for (int c = 0; c < 3; c++) add(row, slots.ext[side][c], sign, cols.lever[c]);
      for (int c = 0; c < 3; c++) add(row, slots.ext[side][3 + c], sign, cols.bore[c]);
      for (int c = 0; c < N_INTERNAL && inv.ncalint > 0; c++)
        add(row, slots.intl[side][c], sign, cols.internal[c]);
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

namespace {
// The boresight that a side of a pair gets, rad; zero for what is not estimated.
xyz side_bore(const InvCalDrift& inv, const PairSlots& slots, int side) {
  const auto value = [&](int c) {
    const int slot = slots.ext[side][3 + c];
    return slot < 0 ? 0.0f : static_cast<float>(inv.x(slots.idx[slot]));
  };
  return {value(0), value(1), value(2)};
}

// (G Tb G^t - I) r less B x r, the rotation beyond its first order.
xyz bore_beyond(const TrajFrame& f, const xyz& r, const Rot3& Tb, const xyz& B) {
  const xyz body = {dot(f.a, r), dot(f.b, r), dot(f.c, r)};
  const xyz d = rotate(Tb, body) - body - cross(B, body);
  return f.a * d.x + f.b * d.y + f.c * d.z;
}
}  // namespace

void linearise_bore(InvCalDrift& inv) {
  if (!inv.FE[3] && !inv.FE[4] && !inv.FE[5]) return;
  for_used_pairs(inv, [&](int k) {
    PairState& state = inv.pair[k];
    const InvPair& p = inv.in.pairs[k];
    const PairSlots slots = make_slots(inv, k, false);
    const xyz B[2] = {side_bore(inv, slots, 0), side_bore(inv, slots, 1)};
    const Rot3 Tb[2] = {comp_T(B[0]), comp_T(B[1])};
    if (state.beyond.empty()) state.beyond.resize(p.P.size(), xyz{0, 0, 0});
    TrajFrame frame;
    for (uint64_t i = 0; i < p.P.size(); i++) {
      if (!(state.W0[i].x > 0)) continue;
      xyz beyond = {0, 0, 0};
      for (int side = 0; side < 2; side++) {
        if (B[side] == xyz{0, 0, 0}) continue;
        const SwathId s = side == 0 ? p.sw1 : p.sw2;
        comp_TrajFrame(side == 0 ? p.O1[i] : p.O2[i], side == 0 ? p.Att1[i] : p.Att2[i], inv.in.swaths[s].rot,
                       frame);
        const xyz d = bore_beyond(frame, to_xyz(place_in(p, side, i) - frame.O), Tb[side], B[side]);
        beyond += side == 0 ? -d : d;
      }
      state.data[i] += state.beyond[i] - beyond;
      state.beyond[i] = beyond;
    }
  });
}
}  // namespace veld

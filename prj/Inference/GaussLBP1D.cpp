#include "prj/Inference/GaussLBP1D.h"

namespace veld {
namespace {
// A message to a neighbour: what a node knows without that neighbour, seen through the tie.
struct Message {
  float J = 0, h = 0;
};
Message send(const Message& in, float h, float J) {
  const float a = in.J + J;
  if (a == 0.0f) return {};
  const float c = GLBP_TIE / a;
  return {-GLBP_TIE * c, (h + in.h) * c};
}
}  // namespace

void pass_mess_GLBP(Vector<float>& h, Vector<float>& J) {
  const int64_t N = static_cast<int64_t>(h.size());
  Vector<Message> left(N), right(N);  // from either neighbour
  Vector<float>& mJ = J;
  ASSERT(mJ.size() == h.size());
  if (N == 0) return;
  for (int64_t i = 0; i < N; i++) J[i] += 2.0f * GLBP_TIE;
  J[0] -= GLBP_TIE;  // the ends have one tie only
  J[N - 1] -= GLBP_TIE;

  for (int64_t i = 0; i + 1 < N; i++) left[i + 1] = send(left[i], h[i], J[i]);
  for (int64_t i = N - 1; i > 0; i--) right[i - 1] = send(right[i], h[i], J[i]);
  for (int64_t i = 0; i < N; i++) {
    J[i] = left[i].J + J[i] + right[i].J;
    h[i] = J[i] > 0.0f ? (left[i].h + h[i] + right[i].h) / J[i] : 0.0f;
  }
}

void GLBP_fill_image(Image<float>& Z, Image<float>& W) {
  ASSERT(Z.xsize() == W.xsize() && Z.ysize() == W.ysize());
  Vector<float> h(Z.xsize()), J(Z.xsize());
  if (Z.xsize() > 0)
    for (int y = 0; y < Z.ysize(); y++) {
      Z.getrow(y, h);
      W.getrow(y, J);
      pass_mess_GLBP(h, J);
      Z.setrow(y, h);
      W.setrow(y, J);
    }
  Z *= W;  // means weighted by their precisions are the second direction's information
  h.resize(Z.ysize());
  J.resize(Z.ysize());
  for (int x = 0; x < Z.xsize(); x++) {
    Z.getcol(x, h);
    W.getcol(x, J);
    pass_mess_GLBP(h, J);
    Z.setcol(x, h);
    W.setcol(x, J);
  }
}
}  // namespace veld

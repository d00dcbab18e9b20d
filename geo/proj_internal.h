// geo/proj_internal.h
// PROJ's objects with an owner. For the sources of geo/ only.
#pragma once
#include <proj.h>

#include <memory>
#include <string>

namespace veld {
struct ProjContextEnd {
  void operator()(PJ_CONTEXT* context) const { proj_context_destroy(context); }
};
struct ProjObjectEnd {
  void operator()(PJ* object) const { proj_destroy(object); }
};
using ProjContext = std::unique_ptr<PJ_CONTEXT, ProjContextEnd>;
using ProjObject = std::unique_ptr<PJ, ProjObjectEnd>;

// A silent context that never uses the network. None only when memory is out.
ProjContext make_proj_context();

// An operation of the calling thread, made on first use and kept until another one is asked for.
struct ThreadOperation {
  ProjContext context;
  ProjObject operation;
  std::string def;
  // None when PROJ refuses the definition.
  PJ* get(const std::string& wanted);
};
}  // namespace veld

// Compressed records: joined to the codec next.
#include "las/las_sources.h"

std::unique_ptr<PointSource> make_laz_source(const std::shared_ptr<LasInFile>&, const LASheader&, const LasFileInfo&,
                                             std::string& error) {
  error = "compressed points can't be read yet";
  return nullptr;
}

std::unique_ptr<PointSink> make_laz_sink(LasOutFile&, const LASheader&, const LazScheme&, std::string& error) {
  error = "compressed points can't be written yet";
  return nullptr;
}

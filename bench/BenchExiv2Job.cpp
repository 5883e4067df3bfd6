// BenchExiv2Job.cpp - the preview through libexiv2. See BenchExiv2Job.h.
#include "BenchExiv2Job.h"

#include <exception>
#include <sstream>

// The 0.27 interface hands images out in std::auto_ptr, which C++17 marks
// deprecated; the warning is about that library's interface, not this code.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>

namespace {

// The largest preview of `list` (by byte count); the first on a tie.
const Exiv2::PreviewProperties* largest(const Exiv2::PreviewPropertiesList& list) {
  const Exiv2::PreviewProperties* best = nullptr;
  for (const Exiv2::PreviewProperties& props : list) {
    if (best == nullptr || props.size_ > best->size_) {
      best = &props;
    }
  }
  return best;
}

}  // namespace

void BenchExiv2Job::Setup() { Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute); }

UINT BenchExiv2Job::Preview(const char* path, BenchPreviewSink sink, void* context) {
  try {
    Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(path);
    if (image.get() == nullptr) {
      return 0;
    }
    image->readMetadata();
    Exiv2::PreviewManager manager(*image);
    const Exiv2::PreviewPropertiesList list = manager.getPreviewProperties();
    const Exiv2::PreviewProperties* best = largest(list);
    if (best == nullptr) {
      return 0;
    }
    const Exiv2::PreviewImage preview = manager.getPreviewImage(*best);
    if (preview.size() == 0) {
      return 0;
    }
    sink(preview.pData(), preview.size(), context);
    return preview.size();
  } catch (const std::exception&) {
    return 0;
  }
}

std::string BenchExiv2Job::Describe(const char* path) {
  std::ostringstream out;
  try {
    Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(path);
    if (image.get() == nullptr) {
      return "not opened";
    }
    image->readMetadata();
    out << "image type " << image->mimeType() << "; " << image->exifData().count()
        << " Exif tags; ";
    Exiv2::PreviewManager manager(*image);
    const Exiv2::PreviewPropertiesList list = manager.getPreviewProperties();
    out << list.size() << " preview(s)";
    for (const Exiv2::PreviewProperties& props : list) {
      out << "; id " << props.id_ << ": " << props.size_ << " bytes, " << props.width_ << "x"
          << props.height_ << ", " << props.mimeType_;
    }
  } catch (const std::exception& e) {
    out << "error: " << e.what();
  }
  return out.str();
}

std::string BenchExiv2Job::Version() { return Exiv2::versionString(); }

#pragma GCC diagnostic pop

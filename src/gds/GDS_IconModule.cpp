#include "dicom/pixels/GDS_IconModule.h"

#include "GDS_Silence.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmimage/diregist.h> // colour images
#include <dcmtk/dcmimgle/dcmimage.h>
#include <dcmtk/dcmjpeg/djdecode.h>

#include <algorithm>
#include <memory>

namespace {

/// Codecs, for the whole process. JPEG-LS isn't among them, as DCMTK's codec for it and the one that libDisk
/// uses export the same names; nor RLE, which libDisk decodes itself.
struct Codecs {
  Codecs() { DJDecoderRegistration::registerCodecs(); }
  ~Codecs() { DJDecoderRegistration::cleanup(); }
};

bool Read(DcmFileFormat& file, char const* bytes, unsigned long length) {
  DcmInputBufferStream stream;
  stream.setBuffer(bytes, offile_off_t(length));
  stream.setEos();
  file.transferInit();
  bool const read = file.read(stream).good();
  file.transferEnd();
  return read;
}

/// Colour has no window: these calls do nothing to it.
void SetWindow(DicomImage& image) {
  if (image.getWindowCount() > 0 && image.setWindow(0)) return;
  if (image.getVoiLutCount() > 0 && image.setVoiLut(0)) return;
  image.setMinMaxWindow();
}

int Render(char const* bytes, unsigned long length, int frame, int size, unsigned char* pixels, int* columns,
           int* rows) {
  DcmFileFormat file;
  if (!Read(file, bytes, length)) return -1;
  constexpr unsigned long kFlags =
      CIF_UsePartialAccessToPixelData | CIF_MayDetachPixelData | CIF_NeverAccessEmbeddedOverlays;
  DicomImage image(&file, EXS_Unknown, kFlags, static_cast<unsigned long>(frame), 1);
  if (image.getStatus() != EIS_Normal) return -1;
  SetWindow(image);
  unsigned long const width = image.getWidth(), height = image.getHeight();
  unsigned long const longest = std::max({width, height, static_cast<unsigned long>(size)});
  auto const scaled = [&](unsigned long length) {
    return std::max(1UL, length * static_cast<unsigned long>(size) / longest);
  };
  *columns = int(scaled(width));
  *rows = int(scaled(height));
  constexpr int kAverage = 1;
  std::unique_ptr<DicomImage> icon(image.createScaledImage(scaled(width), scaled(height), kAverage));
  if (icon && !icon->isMonochrome()) icon.reset(icon->createMonochromeImage());
  if (!icon) return -1;
  return icon->getOutputData(pixels, scaled(width) * scaled(height), 8) ? 0 : -1;
}

} // namespace

extern "C" int GDS_RenderIcon(char const* file, unsigned long length, int frame, int size, unsigned char* pixels,
                              int* columns, int* rows) {
  try {
    GDS_Silence const silence;
    static Codecs const s_codecs;
    return Render(file, length, frame, size, pixels, columns, rows);
  } catch (...) { // nothing may pass a C function, whatever other people's code throws
    return -1;
  }
}

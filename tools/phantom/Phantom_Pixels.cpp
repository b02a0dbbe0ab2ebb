#include "Phantom_Pixels.h"

#include "Phantom_Identity.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <span>

namespace Phantom {

namespace {

constexpr int kAlign = 16; // a Hounsfield unit in the intensities of a canvas, of which the first is -1024

struct Ellipsoid {
  double x, y, z;    // centre; the image goes from -1 to 1
  double rx, ry, rz; // radii
  int intensity;
};

class Random {
public:
  explicit Random(std::uint64_t seed) : state_(seed | 1) {}
  std::uint64_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    return state_ ^= state_ << 17;
  }

private:
  std::uint64_t state_;
};

// A picture in the making, 16 bits per pixel.
class Canvas {
public:
  Canvas(int size, int background) : size_(size), pixels_(std::size_t(size) * std::size_t(size), background) {}

  // Where the plane `z` cuts the ellipsoid, line by line.
  void Fill(Ellipsoid const& e, double z) {
    double const depth = 1 - (z - e.z) * (z - e.z) / (e.rz * e.rz);
    if (depth <= 0) return;
    double const scale = 2.0 / size_;
    for (int row = 0; row < size_; ++row) {
      double const y = ((row + 0.5) * scale - 1 - e.y) / e.ry;
      if (y * y >= depth) continue;
      double const half = e.rx * std::sqrt(depth - y * y);
      int const first = std::clamp(int((e.x - half + 1) / scale), 0, size_);
      int const last = std::clamp(int((e.x + half + 1) / scale), first, size_);
      std::fill_n(Row(row) + first, last - first, e.intensity);
    }
  }

  // Adds something between -amplitude and amplitude, seldom much; `amplitude` is a power of two.
  void AddNoise(int amplitude, std::uint64_t seed) {
    Random random(seed);
    std::uint64_t const mask = std::uint64_t(amplitude) - 1;
    std::uint64_t bits = 0;
    int left = 0;
    for (int& pixel : pixels_) {
      if (left-- == 0) {
        bits = random.Next();
        left = 1;
      }
      int const noise = int(bits & mask) + int(bits >> 16 & mask) - int(mask);
      bits >>= 32;
      pixel = std::clamp(pixel + noise, 0, 0xFFFF);
    }
  }

  int* Row(int row) { return pixels_.data() + std::size_t(row) * std::size_t(size_); }
  std::vector<int> const& Pixels() const { return pixels_; }

private:
  int size_;
  std::vector<int> pixels_;
};

// Appends the pixels shifted down by `shift` bits and by `offset`, 1 or 2 bytes each.
void Append(Greyscale& image, Canvas const& canvas, int shift, int offset, int bytes) {
  std::size_t const start = image.bytes.size();
  image.bytes.resize(start + canvas.Pixels().size() * std::size_t(bytes));
  char* out = image.bytes.data() + start;
  int low = INT_MAX;
  int high = INT_MIN;
  for (int const pixel : canvas.Pixels()) {
    int const value = (pixel >> shift) - offset;
    low = std::min(low, value);
    high = std::max(high, value);
    *out++ = char(value);
    if (bytes == 2) *out++ = char(value >> 8);
  }
  image.smallest = start == 0 ? low : std::min(image.smallest, low);
  image.largest = start == 0 ? high : std::max(image.largest, high);
}

int BytesPerPixel(Object const& object) { return object.bits > 8 ? 2 : 1; }

// Greyscale without a unit takes all bits; signed values are positive but for noise.
void AppendScaled(Greyscale& image, Canvas const& canvas, Object const& object) {
  int const shift = 16 - object.bits + (object.is_signed ? 1 : 0);
  Append(image, canvas, shift, object.is_signed ? 1 << std::max(object.bits - 6, 0) : 0, BytesPerPixel(object));
}

// From 0 to 1 and back.
double Swing(double phase) {
  double const part = phase - std::floor(phase);
  return part < 0.5 ? 2 * part : 2 - 2 * part;
}

constexpr int Hounsfield(int units) { return (units + 1024) * kAlign; }

// What moves: its place changes from slice to slice and from series to series.
Ellipsoid Lesion(Object const& object, double z, int intensity) {
  double const phase = (z + 1) / 2 + 0.13 * object.series;
  return {Swing(phase) * 0.7 - 0.35, Swing(phase + 0.25) * 0.5 - 0.25, z, 0.10, 0.13, 1, intensity};
}

void FillAll(Canvas& canvas, std::span<Ellipsoid const> shapes, double z) {
  for (Ellipsoid const& shape : shapes)
    canvas.Fill(shape, z);
}

} // namespace

double Position(Object const& object) {
  return (double((object.image - 1) % object.slices) + 0.5) / object.slices * 2 - 1;
}

int CtSlope(Object const& object) { return 1 << std::max(12 - object.bits, 0); }

Greyscale CtSlice(Object const& object) {
  constexpr Ellipsoid kBody[] = {
      {0, 0, 0, 0.88, 0.66, 1.6, Hounsfield(-90)},
      {0, 0, 0, 0.82, 0.60, 1.5, Hounsfield(45)},
      {-0.42, -0.08, -0.2, 0.30, 0.36, 1.0, Hounsfield(-850)},
      {0.42, -0.08, -0.2, 0.28, 0.36, 1.0, Hounsfield(-850)},
      {0.08, -0.18, 0.2, 0.22, 0.22, 0.6, Hounsfield(60)},
      {0, 0.42, 0, 0.12, 0.12, 3.0, Hounsfield(600)},
      {0, 0.40, 0, 0.05, 0.05, 3.0, Hounsfield(30)},
      {-0.30, 0.22, 0.8, 0.35, 0.25, 0.8, Hounsfield(70)},
  };
  double const z = Position(object);
  Canvas canvas(object.size, Hounsfield(-1000));
  FillAll(canvas, kBody, z);
  canvas.Fill(Lesion(object, z, Hounsfield(object.series % 2 ? 90 : 190)), z);
  canvas.AddNoise(16 * kAlign, Number(object, Purpose::Noise, Level::Image));
  Greyscale image;
  int const slope = CtSlope(object);
  Append(image, canvas, 4 + (12 - std::min(object.bits, 12)), object.is_signed ? 1024 / slope : 0,
         BytesPerPixel(object));
  return image;
}

Greyscale MrSlice(Object const& object) {
  constexpr Ellipsoid kHead[] = {
      {0, 0, 0, 0.66, 0.84, 1.2, 30'000},          {0, 0, 0, 0.60, 0.78, 1.12, 5'000},
      {0, 0, 0, 0.56, 0.74, 1.06, 24'000},         {-0.20, 0, 0, 0.22, 0.50, 0.8, 19'000},
      {0.20, 0, 0, 0.22, 0.50, 0.8, 19'000},       {-0.10, -0.08, 0.1, 0.07, 0.24, 0.5, 48'000},
      {0.10, -0.08, 0.1, 0.07, 0.24, 0.5, 48'000},
  };
  double const z = Position(object);
  Canvas canvas(object.size, 600);
  FillAll(canvas, kHead, z);
  canvas.Fill(Lesion(object, z, object.series % 2 ? 40'000 : 55'000), z);
  canvas.AddNoise(1024, Number(object, Purpose::Noise, Level::Image));
  Greyscale image;
  AppendScaled(image, canvas, object);
  return image;
}

Greyscale Cine(Object const& object) {
  Greyscale image;
  for (int frame = 0; frame < object.frames; ++frame) {
    double const phase = double(frame) / object.frames;
    double const beat = Swing(phase + 0.07 * object.image);
    Canvas canvas(object.size, 2'000);
    canvas.Fill({0, 0, 0, 0.85, 0.85, 1, 14'000}, 0);
    canvas.Fill({-0.1, 0.1, 0, 0.35 + 0.20 * beat, 0.40 + 0.15 * beat, 1, 46'000}, 0);
    canvas.Fill({-0.1, 0.1, 0, 0.20 + 0.22 * beat, 0.25 + 0.15 * beat, 1, 58'000}, 0);
    canvas.AddNoise(1024, Number(object, Purpose::Noise, Level::Image) + std::uint64_t(frame));
    AppendScaled(image, canvas, object);
  }
  return image;
}

std::string ColourImage(Object const& object) {
  int const size = object.size;
  std::size_t const area = std::size_t(size) * std::size_t(size);
  Canvas grey(size, 0);
  for (int row = 0; row < size; ++row) { // a sector that widens downwards
    int const half = row * 45 / 100;
    int const first = std::max(size / 2 - half, 0);
    int const last = std::min(size / 2 + half, size);
    std::fill_n(grey.Row(row) + first, last - first, 22'000 + (row * 29 % size) * 12'000 / size);
  }
  grey.Fill({0.05, 0.1, 0, 0.22, 0.18, 1, 5'000}, 0);
  grey.AddNoise(8192, Number(object, Purpose::Noise, Level::Image));
  Canvas flow(size, 0);
  double const beat = Swing(double(object.image) / 10);
  flow.Fill({0.05 + 0.08 * (beat - 0.5), 0.1, 0, 0.10 + 0.08 * beat, 0.08 + 0.05 * beat, 1, beat < 0.5 ? 1 : 2}, 0);

  std::string bytes(area * 3, '\0');
  std::size_t const pixel_step = object.planar ? 1 : 3;
  std::size_t const colour_step = object.planar ? area : 1;
  for (std::size_t i = 0; i < area; ++i) {
    int const value = grey.Pixels()[i] >> 8;
    int const towards = flow.Pixels()[i];
    char* const pixel = bytes.data() + i * pixel_step;
    pixel[0] = char(towards == 1 ? 255 - value / 2 : value);
    pixel[colour_step] = char(towards ? value / 3 : value);
    pixel[2 * colour_step] = char(towards == 2 ? 255 - value / 2 : value);
  }
  return bytes;
}

} // namespace Phantom

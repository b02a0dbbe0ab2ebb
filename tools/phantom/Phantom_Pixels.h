// The pictures. Intensities are made in 16 bits and brought to the object's bits at the end.
#pragma once

#include "Phantom.h"

#include <string>

namespace Phantom {

// Where the image lies in its volume, from -1 (first) to 1.
double Position(Object const& object);

struct Greyscale {
  std::string bytes; // as Pixel Data holds them, little endian
  int smallest = 0;
  int largest = 0;
};

// A CT slice keeps its Hounsfield units from 12 bits on: the value + 1024, or as it is when signed. With
// fewer bits the unit is CtSlope.
Greyscale CtSlice(Object const& object);
int CtSlope(Object const& object);
Greyscale MrSlice(Object const& object);
// All frames one after the other.
Greyscale Cine(Object const& object);
// An ultrasound sector with a patch of colour, RGB in the object's planar configuration.
std::string ColourImage(Object const& object);

} // namespace Phantom

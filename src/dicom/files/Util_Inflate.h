#pragma once
#include <infra/Util_Buffer.h>

#include <memory>
#include <string>
#include <string_view>

/// The most bytes that a deflated data set may have when it is inflated. Small files that claim more are made to
/// exhaust memory.
constexpr std::size_t kMaximalInflated = std::size_t(256) << 20;

/// The inflated bytes of a raw deflate stream (or a zlib one, which some writers make); null, with the reason in
/// `*error`, when it is damaged or goes beyond the limit.
std::shared_ptr<Util_Buffer const> Util_Inflate(std::string_view deflated, std::string* error);

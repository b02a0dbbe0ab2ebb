#include <infra/Klb_GError.h>

namespace {
thread_local int t_code = 0;
}

constinit Klb_GError KlbGError;

void Klb_GError::Set(int code) noexcept { t_code = code; }

int Klb_GError::Get() const noexcept { return t_code; }

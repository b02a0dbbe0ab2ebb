#include "GDS_Silence.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>
#include <dcmtk/oflog/spi/filter.h>

#include <mutex>

namespace {

namespace log = dcmtk::log4cplus;

thread_local int s_silent = 0;

class Filter : public log::spi::Filter {
public:
  log::spi::FilterResult decide(log::spi::InternalLoggingEvent const&) const override {
    return s_silent > 0 ? log::spi::DENY : log::spi::NEUTRAL;
  }
};

/// Puts the filter in front of those that each appender has.
void Install() {
  for (log::SharedAppenderPtr& appender : log::Logger::getRoot().getAllAppenders()) {
    log::thread::MutexGuard const hold(appender->access_mutex);
    log::spi::FilterPtr const filter(new Filter);
    filter->next = appender->getFilter();
    appender->setFilter(filter);
  }
}

} // namespace

GDS_Silence::GDS_Silence() {
  static std::once_flag s_once;
  std::call_once(s_once, Install);
  ++s_silent;
}

GDS_Silence::~GDS_Silence() { --s_silent; }

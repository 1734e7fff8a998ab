#include <gmock/gmock.h>

#include "daemon/moraine.h"
#include "rotate/rotate.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/log_sink.h"

namespace {

struct Engine : Rotate {
    using Rotate::archDirSize;
};

class CapacityTest : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(Moraine::SyslogPathAbs); }

    LogSink log;
    Engine rotate;
};

TEST_F(CapacityTest, OneByteBelowTheRequiredCapacityFails) {
    Faults::SetCapacity(1288490187);
    EXPECT_FAILURE(rotate.CheckPermCapacity());
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_ERR,
                         "Required archive capacity is 1.200 GiB. File system (/perm/logs/syslog) "
                         "is too small: 1.200 GiB."}}));
}

}  // namespace

#include "base/setting_text.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "model/concat.h"

namespace {

// A loaded setting is read by several workers at once, none of which asked for its narrow form
// before (ThreadSanitizer sees any lazily filled cache here); a copy owns its own narrow form, so
// it stays whole when the original goes (a pointer into the original would dangle).
TEST(SettingTextTest, ReadersAndCopiesNeedNoWarmUp) {
    for (const char16_t* text : {u"SOFTWARE\\Quillet\\RS1", u"gr\u00FC\u00DFe \u20AC", u""}) {
        auto original = std::make_unique<CSettingText>(std::u16string_view(text));
        std::string seen[2];
        std::thread first([&] { seen[0] = original->getStringA(); });
        std::thread second([&] { seen[1] = original->text().getStringA(); });
        first.join();
        second.join();
        EXPECT_EQ(seen[0], platformNarrow(text));
        EXPECT_EQ(seen[1], seen[0]);

        CSettingText copy(*original);
        original = std::make_unique<CSettingText>(u"something else entirely, long enough");
        EXPECT_EQ(std::string(copy.getStringA()), platformNarrow(text));
        EXPECT_TRUE(copy == text);
    }
}

}  // namespace

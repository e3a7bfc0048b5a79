#include <gtest/gtest.h>

#include "ruk/intrusive_ptr.h"

namespace {

class Counted : public ruk::RefCounted {
public:
    explicit Counted(int& destroyed) : destroyed_(destroyed) {}
    ~Counted() override { ++destroyed_; }

private:
    int& destroyed_;
};

TEST(RukIntrusivePtrTest, ObjectLivesExactlyAsLongAsItsLastPointer) {
    int destroyed = 0;
    {
        auto first = ruk::MakeIntrusive<Counted>(destroyed);
        EXPECT_EQ(first->UseCount(), 1);
        {
            ruk::intrusive_ptr<Counted> second = first;
            EXPECT_EQ(first->UseCount(), 2);
            ruk::intrusive_ptr<ruk::RefCounted> base = second;
            EXPECT_EQ(first->UseCount(), 3);
        }
        EXPECT_EQ(first->UseCount(), 1);
        EXPECT_EQ(destroyed, 0);

        // A raw pointer handed back to an intrusive_ptr shares the same count.
        Counted* raw = first.get();
        ruk::intrusive_ptr<Counted> again(raw);
        EXPECT_EQ(raw->UseCount(), 2);
        first.reset();
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);

    // The count starts at zero: the first pointer takes ownership.
    auto* fresh = new Counted(destroyed);
    EXPECT_EQ(fresh->UseCount(), 0);
    ruk::intrusive_ptr<Counted>{fresh};
    EXPECT_EQ(destroyed, 2);
}

}  // namespace

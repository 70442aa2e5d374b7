#include "platform/foreign_call.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <type_traits>

namespace {

using platform::CallForeign;
using platform::ForeignException;

static_assert(!std::is_base_of_v<std::exception, ForeignException>, "a handler of std::exception must not catch it");

struct Base {
    virtual std::uint64_t Large() = 0;
    virtual void Add(std::int32_t number, double real, const char* text) = 0;

  protected:
    ~Base() = default;
};

struct Object : Base {
    std::uint64_t Large() override { return 0xFEDCBA9876543210; }
    void Add(std::int32_t number, double real, const char* text) override {
        sum += number + real + text[0];
        ++calls;
    }
    virtual double Sum() { return sum; }
    virtual bool IsCalled() { return calls != 0; }
    virtual Object* Self() { return this; }
    virtual ~Object() = default;

    double sum = 0;
    int calls = 0;
};

int Minus(int one, int other) {
    return one - other;
}

void ThrowStandard() {
    throw std::runtime_error("our own");
}

void ThrowThroughGuard() {
    CallForeign<&ThrowStandard>();
}

TEST(ForeignCall, CallsAMethodAndReturnsItsResult) {
    Object object;
    EXPECT_FALSE(CallForeign<&Object::IsCalled>(&object));
    CallForeign<&Base::Add>(&object, 2, 0.5, "A");
    EXPECT_EQ(object.calls, 1);
    EXPECT_EQ(CallForeign<&Object::Sum>(&object), 67.5);
    EXPECT_TRUE(CallForeign<&Object::IsCalled>(&object));
    EXPECT_EQ(CallForeign<&Base::Large>(&object), 0xFEDCBA9876543210);
    EXPECT_EQ(CallForeign<&Object::Self>(&object), &object);
}

TEST(ForeignCall, CallsAFunctionAndReturnsItsResult) {
    EXPECT_EQ(CallForeign<&Minus>(7, 9), -2);
}

TEST(ForeignCall, PropagatesThisCompilersExceptionsUnchanged) {
    try {
        CallForeign<&ThrowThroughGuard>();
        FAIL() << "nothing is thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "our own");
    }
}

}  // namespace

// Cases that occur only with pipes of Windows.

#include <windows.h>
// clang-format off: needs the one above
#include <sddl.h>
// clang-format on

#include <algorithm>
#include <array>

#include "reference/transport/windows_names.h"
#include "tests/reference/transport/connection_fixture.h"

namespace {

using namespace transport_test;

// Returns this process's user as a SID string.
std::string OwnUser() {
    HANDLE token = nullptr;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
    alignas(TOKEN_USER) std::array<std::byte, 256> user = {};
    DWORD size = 0;
    GetTokenInformation(token, TokenUser, user.data(), user.size(), &size);
    CloseHandle(token);
    char* text = nullptr;
    ConvertSidToStringSidA(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &text);
    const std::string copy = text;
    LocalFree(text);
    return copy;
}

TEST_F(LocalConnection, HasARandomPipeNameThatIsWithdrawn) {
    const std::string first = PublishedPipePath(name);
    EXPECT_THAT(first, testing::StartsWith("\\\\.\\pipe\\vexlane-reading-"));
    Reconnect();
    EXPECT_THAT(PublishedPipePath(name), testing::AllOf(testing::StrNe(first), testing::SizeIs(first.size())));
    Disconnect();
    EXPECT_EQ(PublishedPipePath(name), "");
}

/// Security attributes that make another user the owner of an object. Under Wine any process may do that.
class Owner {
  public:
    Owner(const std::string& user, const std::string& access) {
        ConvertStringSecurityDescriptorToSecurityDescriptorA(("O:" + user + "D:P" + access).c_str(), SDDL_REVISION_1,
                                                             &attributes_.lpSecurityDescriptor, nullptr);
    }
    ~Owner() { LocalFree(attributes_.lpSecurityDescriptor); }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    SECURITY_ATTRIBUTES* Get() { return &attributes_; }

  private:
    SECURITY_ATTRIBUTES attributes_ = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

constexpr char system[] = "SY";
constexpr char accessForAll[] = "(A;;GA;;;WD)";
constexpr char accessForSystem[] = "(A;;GA;;;SY)";

// Such a mutex once prevented every server of the user from listening.
TEST(Names, AreNotBlockedByAnotherUsersMutex) {
    for (const char* const access : {accessForAll, accessForSystem}) {
        const std::string name = RandomName();
        Owner other(system, access);
        const HANDLE mutex = CreateMutexA(other.Get(), FALSE, MutexName(name).c_str());
        if (mutex == nullptr) {
            GTEST_SKIP() << "needs a system that allows objects of another user";
        }
        std::optional<Listener> listener = Listener::Open(name);
        EXPECT_TRUE(listener) << access;
        EXPECT_TRUE(Connection::Open(name)) << access;
        EXPECT_FALSE(Listener::Open(name)) << "its own server listens: " << access;
        listener.reset();
        EXPECT_TRUE(Listener::Open(name)) << access;
        CloseHandle(mutex);
    }
}

// The process at the other end of such a pipe can be one of this user's that was made to open it.
TEST(Names, PipesOfAnotherUserAreRefused) {
    const std::string name = RandomName();
    const auto isConnectedTo = [&name](const std::string& user) {
        Owner owner(user, accessForAll);
        const std::string path = NewPipePath();
        const HANDLE pipe =
            CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE,
                             PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_NOWAIT, 1, 100, 100, 0, owner.Get());
        PublishPipePath(name, path);
        std::optional<Connection> client = Connection::Open(name);
        const bool isConnected = client.has_value();
        client.reset();
        char byte = 0;
        DWORD read = 0;
        EXPECT_FALSE(ReadFile(pipe, &byte, 1, &read, nullptr)) << "the client sent data";
        WithdrawPipePath(name, path);
        CloseHandle(pipe);
        return isConnected;
    };
    EXPECT_FALSE(isConnectedTo(system));
    EXPECT_TRUE(isConnectedTo(OwnUser())) << "the control";
}

// The pipe's access control list admits only the user.
TEST_F(LocalConnection, AdmitsOnlyItsOwnUser) {
    const HANDLE pipe = CreateFileA(PublishedPipePath(name).c_str(), READ_CONTROL | GENERIC_READ, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
    std::vector<std::byte> description(4096);
    DWORD size = 0;
    ASSERT_TRUE(GetKernelObjectSecurity(pipe, DACL_SECURITY_INFORMATION, description.data(),
                                        static_cast<DWORD>(description.size()), &size));
    CloseHandle(pipe);
    char* text = nullptr;
    ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorA(description.data(), SDDL_REVISION_1,
                                                                     DACL_SECURITY_INFORMATION, &text, nullptr));
    const std::string list = text;
    LocalFree(text);
    EXPECT_THAT(list, testing::AllOf(testing::StartsWith("D:P(A;;"), testing::EndsWith(";;;" + OwnUser() + ")")));
    EXPECT_EQ(std::count(list.begin(), list.end(), '('), 1);
}

// More clients than the pipe has waiting instances.
TEST_F(LocalConnection, ManyCanConnectBeforeAnyIsAccepted) {
    std::vector<Connection> many;
    while (std::optional<Connection> next = Connection::Open(name)) {
        many.push_back(std::move(*next));
        ASSERT_LT(many.size(), 1000u);
    }
    EXPECT_GE(many.size(), 8u);
    for (std::size_t accepted = 0; accepted < many.size(); ++accepted) {
        EXPECT_TRUE(listener->Accept(In(10s)));
    }
    EXPECT_TRUE(Connection::Open(name));
}

}  // namespace

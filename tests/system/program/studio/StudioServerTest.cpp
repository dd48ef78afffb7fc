#include "tests/system/program/studio/StudioTest.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <random>
#include <sstream>

namespace Qx::System {

namespace {

/// What a stranger may do to the server of the studio.
class StudioServer : public StudioTest
{
protected:
    void SetUp() override
    {
        StudioTest::SetUp();
        makeClip();
        start({"clip.mp4", "cc3.fx"});
    }

    /// The page is there, and a window gets a picture.
    void expectWorking()
    {
        EXPECT_EQ(get("").status, 200);
        Browser browser = window();
        browser.send({{"do", "view"}, {"width", 64}, {"height", 36}});
        EXPECT_FALSE(browser.picture().jpeg.empty());
    }

    /// The status of a request for a window from a page of that origin.
    int statusFrom(const std::string& origin) const
    {
        RawConnection connection(parts_.port);
        connection.send(handshake(origin.empty() ? "" : "Origin: " + origin + "\r\n"));
        const std::string reply = connection.receive(500);
        return reply.empty() ? 0 : std::stoi(reply.substr(reply.find(' ') + 1, 3));
    }

    std::string handshake(const std::string& origin) const
    {
        return "GET " + parts_.path + "socket HTTP/1.1\r\nHost: " + parts_.host + "\r\n" + origin +
               "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
               "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n";
    }
};

TEST_F(StudioServer, gives_the_page_to_who_knows_the_token)
{
    const Reply page = get("");
    EXPECT_EQ(page.status, 200);
    EXPECT_NE(page.body.find("<html"), std::string::npos);
    EXPECT_EQ(get("index.html").body, page.body);
    EXPECT_EQ(get("index.html?again=1").body, page.body);
    const Reply headersAlone = get("", "HEAD");
    EXPECT_EQ(headersAlone.status, 200);
    EXPECT_EQ(headersAlone.body, "");
    EXPECT_NE(headersAlone.headers.find("Content-Length: " + std::to_string(page.body.size())),
              std::string::npos);
    for (const char* header :
         {"Content-Security-Policy: default-src 'self';", "frame-ancestors 'none'",
          "Referrer-Policy: no-referrer", "X-Content-Type-Options: nosniff", "Cache-Control: no-store",
          "Cross-Origin-Resource-Policy: same-origin", "Content-Type: text/html; charset=utf-8"}) {
        EXPECT_NE(page.headers.find(header), std::string::npos) << header << "\n" << page.headers;
    }
    stop();
}

TEST_F(StudioServer, tells_nothing_without_the_token)
{
    const std::string token = parts_.path.substr(1, parts_.path.size() - 2);
    ASSERT_EQ(token.size(), 64U);
    std::string other = token;
    other.back() = other.back() == '0' ? '1' : '0';
    for (const std::string& target :
         {std::string("/"), "/" + token, "/" + token.substr(1) + "/", "/" + other + "/", "//" + token + "/",
          "/" + other + "/socket", "/" + token + token + "/", std::string("/favicon.ico"),
          std::string("*")}) {
        const Reply reply = ask(head("GET", target));
        EXPECT_EQ(reply.status, 404) << target;
        EXPECT_EQ(reply.body, "") << target;
    }
    stop();
}

TEST_F(StudioServer, takes_no_other_methods)
{
    for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE"}) {
        const Reply reply = get("", method);
        EXPECT_EQ(reply.status, 405) << method;
        EXPECT_EQ(reply.body, "") << method;
    }
    EXPECT_EQ(get("", "STEAL").status, 405);
    stop();
}

TEST_F(StudioServer, serves_nothing_but_the_files_of_the_page)
{
    for (const char* path : {"../",
                             "..%2f",
                             "%2e%2e/%2e%2e/etc/passwd",
                             "../../../../etc/passwd",
                             "./index.html",
                             "/etc/passwd",
                             "base/../index.html",
                             "base/",
                             "base",
                             ".git/config",
                             "index.html%00.js",
                             "still/../../clip.mp4",
                             "still/1.jpg",
                             "still/%2e%2e/x.jpg",
                             "thumbnail/effect/../../../etc/passwd.jpg",
                             "thumbnail/effect/.jpg",
                             "thumbnail/effect/%2fetc%2fpasswd.jpg",
                             "thumbnail/lut/none.cube.jpg",
                             "thumbnail/other/cc3.fx.jpg",
                             "still/%zz.jpg",
                             "clip.mp4",
                             "socket"}) {
        const Reply reply = get(path);
        EXPECT_EQ(reply.status, 404) << path;
        EXPECT_EQ(reply.body, "") << path;
    }
    EXPECT_EQ(get("thumbnail/effect/cc3.fx.jpg").status, 200);
    EXPECT_EQ(get("thumbnail/effect/cc3%2Efx.jpg").status, 200);
    stop();
}

TEST_F(StudioServer, answers_to_its_own_names_alone)
{
    const auto statusFor = [&](const std::string& host) {
        return ask("GET " + parts_.path + " HTTP/1.1\r\nConnection: close\r\n" + host + "\r\n").status;
    };
    for (const char* host :
         {"127.0.0.1", "localhost", "LOCALHOST:1", "[::1]", "[::1]:65535", "127.0.0.1:80"}) {
        EXPECT_EQ(statusFor("Host: " + std::string(host) + "\r\n"), 200) << host;
    }
    for (const char* host :
         {"example.com", "localhost.example.com", "127.0.0.1.example.com", "127.0.0.2", "[::2]", "[::1",
          "127.0.0.1:x", "127.0.0.1:123456", "localhost@example.com", "0x7f.1", ""}) {
        EXPECT_EQ(statusFor("Host: " + std::string(host) + "\r\n"), 403) << host;
    }
    EXPECT_EQ(statusFor(""), 403);
    EXPECT_EQ(statusFor("Host: 127.0.0.1\r\nHost: example.com\r\n"), 400);
    stop();
}

TEST_F(StudioServer, refuses_windows_of_other_sites)
{
    EXPECT_EQ(statusFrom("http://example.com"), 403);
    EXPECT_EQ(statusFrom("http://127.0.0.1"), 403); // another port is another site
    EXPECT_EQ(statusFrom("http://localhost:" + std::to_string(parts_.port)), 403);
    EXPECT_EQ(statusFrom("null"), 403);
    EXPECT_EQ(statusFrom("file://"), 403);
    EXPECT_EQ(statusFrom(""), 403);
    EXPECT_EQ(statusFrom("http://" + parts_.host), 101);
    stop();
}

TEST_F(StudioServer, bounds_requests)
{
    EXPECT_EQ(ask(head("GET", parts_.path, "X: " + std::string(20000, 'x') + "\r\n")).status, 431);
    EXPECT_EQ(ask(head("GET", "/" + std::string(40000, 'x'))).status, 431);
    EXPECT_EQ(ask(head("GET", parts_.path, "Content-Length: 1000000\r\n")).status, 413);
    EXPECT_EQ(ask("GET\r\n\r\n").status, 400);
    EXPECT_EQ(ask("GET / HTTP/9.9\r\n\r\n").status, 400);
    EXPECT_EQ(ask(head("GET", parts_.path, "Content-Length: -1\r\n")).status, 400);
    EXPECT_EQ(ask(std::string("\x16\x03\x01\x02\x00\x01\x00\x01", 8) + "\r\n\r\n").status, 400); // TLS
    expectWorking();
    stop();
}

TEST_F(StudioServer, ends_connections_that_dribble)
{
    RawConnection slow(parts_.port);
    slow.send("GET " + parts_.path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n");
    RawConnection silent(parts_.port);
    EXPECT_EQ(slow.receive(60000), ""); // without the server's limit this would last a minute, and then fail
    EXPECT_FALSE(slow.send("X: 1\r\n") && slow.send("X: 2\r\n"));
    EXPECT_EQ(silent.receive(60000), "");
    expectWorking();
    stop();
}

TEST_F(StudioServer, outlives_ten_thousand_malformed_requests)
{
    expectWorking();
    const std::size_t before = descriptors();
    std::mt19937 random(1); // the same in every run
    const std::string sound = head("GET", parts_.path,
                                   "Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                                   "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n");
    for (int i = 0; i < 10000; ++i) {
        std::string bytes = sound;
        for (unsigned changes = 1 + random() % 8; changes > 0; --changes) {
            const std::size_t at = random() % bytes.size();
            switch (random() % 3) {
            case 0:
                bytes[at] = static_cast<char>(random());
                break;
            case 1:
                bytes.erase(at, 1 + random() % 16);
                break;
            default:
                bytes.insert(at, 1 + random() % 4, static_cast<char>(random()));
            }
        }
        RawConnection connection(parts_.port);
        connection.send(bytes);
        if (i % 50 == 0) {
            connection.receive(1);
        }
    }
    EXPECT_TRUE(becomes([&] { return get("").status == 200; })); // the last ones may be open still
    expectWorking();
    EXPECT_TRUE(becomes([&] { return descriptors() <= before + 4; })) << before << " " << descriptors();
    stop();
}

TEST_F(StudioServer, outlives_malformed_frames)
{
    expectWorking();
    const std::size_t before = descriptors();
    std::mt19937 random(2);
    for (int i = 0; i < 10000; ++i) {
        RawConnection connection(parts_.port);
        std::string frames;
        for (unsigned count = random() % 64; count > 0; --count) {
            frames.push_back(static_cast<char>(random()));
        }
        connection.send(handshake("Origin: http://" + parts_.host + "\r\n") + frames);
        if (i % 50 == 0) {
            connection.receive(1);
        }
    }
    EXPECT_TRUE(becomes([&] { return get("").status == 200; })); // the last ones may be open still
    expectWorking();
    EXPECT_TRUE(becomes([&] { return descriptors() <= before + 4; })) << before << " " << descriptors();
    stop();
}

TEST_F(StudioServer, ends_windows_that_send_too_much_or_no_text)
{
    Browser large = window();
    try {
        large.sendText(std::string((std::size_t{1} << 20U) + 1, ' '));
    } catch (const std::exception&) { // closed before all of it was sent
    }
    EXPECT_NE(large.readToEnd(), 1000);
    Browser binary = window();
    binary.sendText("{}", true);
    EXPECT_NE(binary.readToEnd(), 1000);
    Browser within = window();
    within.sendText("{\"do\": \"" + std::string(1000000, 'x') + "\"}");
    EXPECT_EQ(within.unasked()["is"], "error");
    expectWorking();
    stop();
}

TEST_F(StudioServer, is_not_held_up_by_windows_that_do_not_read)
{
    std::vector<Browser> slow;
    for (int i = 0; i < 8; ++i) {
        slow.push_back(window());
        slow.back().send({{"do", "view"}, {"width", 320}, {"height", 180}});
        for (int message = 0; message < 300; ++message) {
            slow.back().send({{"do", "looks"}, {"id", message}});
            slow.back().send({{"do", "shown"}, {"frame", 0}, {"of", "after"}});
        }
    }
    const std::size_t before = memory();
    Browser quick = window();
    quick.send({{"do", "view"}, {"width", 320}, {"height", 180}});
    for (int i = 1; i <= 60; ++i) {
        ASSERT_EQ(quick.ask({{"do", "seek"}, {"frame", i % 25}, {"change", i}})["is"], "answer");
        quick.picture([&](const Json& header) { return header["answers"] >= i; });
    }
    EXPECT_LT(memory(), before + 200 * 1024); // KiB
    stop();
}

TEST_F(StudioServer, takes_two_hundred_connections)
{
    const std::size_t before = descriptors();
    {
        std::vector<RawConnection> connections;
        std::size_t refused = 0;
        for (int i = 0; i < 200; ++i) {
            connections.emplace_back(parts_.port);
        }
        for (std::size_t i = connections.size(); i-- > 32;) {
            const std::string text = connections[i].receive(5000);
            refused += text.starts_with("HTTP/1.1 503 ") ? 1U : 0U;
        }
        EXPECT_GE(refused, 64U);
        EXPECT_LE(descriptors(), before + 200);
    }
    EXPECT_TRUE(becomes([&] { return get("").status == 200; }));
    expectWorking();
    EXPECT_TRUE(becomes([&] { return descriptors() <= before + 4; })) << before << " " << descriptors();
    stop();
}

TEST_F(StudioServer, starts_again_at_the_same_address)
{
    stop();
    const std::string token(64, 'a');
    ::setenv("QXHOST_STUDIO_TOKEN", token.c_str(), 1);
    start({"clip.mp4", "cc3.fx", "--port", std::to_string(parts_.port)});
    const std::string first = address_;
    EXPECT_NE(first.find(token), std::string::npos);
    Browser browser = window();
    browser.ask({{"do", "looks"}});
    program_->signal(SIGINT);
    EXPECT_EQ(browser.readToEnd(), 1001); // it says that it goes
    EXPECT_EQ(program_->wait().exitCode, 0);
    start({"clip.mp4", "cc3.fx", "--port", std::to_string(parts_.port)});
    EXPECT_EQ(address_, first);
    expectWorking();
    stop();
    ::setenv("QXHOST_STUDIO_TOKEN", "short", 1);
    EXPECT_EQ(qxhost({"studio", "clip.mp4"}).exitCode, 2);
    ::unsetenv("QXHOST_STUDIO_TOKEN");
}

TEST_F(StudioServer, says_that_a_port_is_taken)
{
    const Outcome outcome = qxhost({"studio", "clip.mp4", "--port", std::to_string(parts_.port)});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_NE(outcome.err.find(std::to_string(parts_.port) + ": cannot be listened on"), std::string::npos)
        << outcome.err;
    stop();
}

TEST_F(StudioServer, listens_on_the_loopback_alone)
{
    std::ostringstream port;
    port << std::uppercase << std::hex << std::setw(4) << std::setfill('0') << parts_.port;
    std::vector<std::string> listening; // addresses in hexadecimal
    for (const char* table : {"tcp", "tcp6"}) {
        std::ifstream lines("/proc/net/" + std::string(table));
        std::string number;
        std::string local;
        std::string remote;
        std::string state;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream(line) >> number >> local >> remote >> state;
            if (state == "0A" && local.ends_with(":" + port.str())) {
                listening.push_back(local.substr(0, local.find(':')));
            }
        }
    }
    EXPECT_EQ(listening, std::vector<std::string>{"0100007F"}); // 127.0.0.1
    stop();
}

TEST_F(StudioServer, warns_when_other_machines_are_let_in)
{
    EXPECT_EQ(program_->errorSoFar().find("others on the network"), std::string::npos);
    stop();
    start({"clip.mp4", "--host", "0.0.0.0"});
    EXPECT_NE(program_->errorSoFar().find("others on the network"), std::string::npos);
    const auto statusFor = [&](const std::string& host) {
        return ask("GET " + parts_.path + " HTTP/1.1\r\nConnection: close\r\nHost: " + host + "\r\n\r\n")
            .status;
    };
    EXPECT_EQ(statusFor("192.168.1.7:8000"), 200);
    EXPECT_EQ(statusFor("example.com"), 403); // a name may be made to point here
    stop();
}

TEST_F(StudioServer, ends_with_control_c_while_it_plays)
{
    Browser browser = window();
    browser.send({{"do", "view"}, {"width", 320}, {"height", 180}});
    browser.ask({{"do", "play"}});
    for (int i = 0; i < 5; ++i) {
        browser.picture();
    }
    stop();
    EXPECT_NE(browser.readToEnd(), 1000);
    EXPECT_EQ(filesBeside({"clip.mp4"}), std::vector<std::string>());
}

TEST_F(StudioServer, keeps_descriptors_and_memory_over_thousands_of_requests)
{
    const auto useIt = [&](int rounds) {
        for (int round = 0; round < rounds; ++round) {
            Browser browser = window();
            const Json link = browser.state([](const Json&) { return true; })["chain"][0]["id"];
            browser.send({{"do", "view"}, {"width", 160}, {"height", 90}});
            for (int i = 1; i <= 25; ++i) {
                browser.ask({{"do", "seek"}, {"frame", i - 1}});
                browser.ask({{"do", "set"}, {"link", link}, {"name", "gain"}, {"values", {1 + i / 100.0}}});
                browser.ask({{"do", "probe"}, {"x", i}, {"y", i}});
                browser.ask({{"do", "nothing"}});
            }
            get("thumbnail/effect/qx-vignette.fx.jpg");
            get("index.html");
        }
    };
    useIt(10);
    const std::size_t files = descriptors();
    const std::size_t kibibytes = memory();
    useIt(50); // 5000 messages
    EXPECT_TRUE(becomes([&] { return descriptors() <= files + 2; })) << files << " " << descriptors();
    EXPECT_LT(memory(), kibibytes + 16 * 1024);
    stop();
}

} // namespace

} // namespace Qx::System

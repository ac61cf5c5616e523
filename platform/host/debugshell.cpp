// The debug shell: a stream socket RUNDIR/debug-rpN, one request a connection.
//
//   request:  "NAME arguments\n"        at most REQUEST_MAX bytes
//   answer:   "OK length\n" and the text, or "NO reason\n"
//
// A listener thread talks to the clients and never blocks on one of them. It hands each request to
// the task, which an event descriptor (the "pipe" of its select loop) wakes, and the task runs it
// between two messages. A request whose client has gone by then is not run.
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/api/zekSwp.h"
#include "platform/api/zekTask.h"
#include "platform/host/host.h"

namespace {

constexpr size_t REQUEST_MAX = 4096;
constexpr size_t CLIENTS_MAX = 16;
constexpr uint64_t CLIENT_MS = 10000;  // for the request to come and, anew, for the answer to go
constexpr uint64_t RUN_MS = 60000;     // for the task to find time
constexpr size_t ANSWER_MAX = 1u << 30;

struct debugJob {
    std::string name, args;
    std::string out;
    bool found = false;
    std::atomic<bool> done{false};
};

struct debugClient {
    hostFd fd;
    std::string in, out;
    std::shared_ptr<debugJob> job;
    uint64_t deadline;
};

struct debugShell {
    hostFd listen, toTask, toListener;
    std::string path;
    std::mutex lock;
    std::condition_variable ended;
    std::deque<std::weak_ptr<debugJob>> waiting;
    bool running = false;
    std::atomic<bool> stop{false};
};
// Never destroyed: the listener may outlive the process's static objects.
debugShell& shell = *new debugShell;

void signalFd(const hostFd& fd) {
    uint64_t one = 1;
    (void)!write(fd.fd, &one, sizeof(one));
}
void clearFd(int fd) {
    uint64_t count;
    (void)!read(fd, &count, sizeof(count));
}

void answer(debugClient* c, std::string text) {
    c->out = std::move(text);
    c->deadline = hostNowMs() + CLIENT_MS;
    c->job.reset();
}

// "request-state SERVICE SEQUENCE", from a process of this route processor: answered here, because
// it is asked when the task does not answer.
bool answerRequestState(debugClient* c, std::string_view line) {
    constexpr std::string_view name = "request-state ";
    if (!line.starts_with(name)) return false;
    uint32_t numbers[2] = {};
    const char* at = line.data() + name.size();
    for (uint32_t& number : numbers) {
        at = std::from_chars(at, line.data() + line.size(), number).ptr;
        if (at < line.data() + line.size()) at++;
    }
    const std::string_view state = hostRequestState(hostConf().address, numbers[0], numbers[1]);
    answer(c, "OK " + std::to_string(state.size()) + "\n" + std::string(state));
    return true;
}

// A whole request is there: hands it to the task.
void begin(debugClient* c, std::string_view line) {
    if (answerRequestState(c, line)) return;
    size_t blank = line.find(' ');
    auto job = std::make_shared<debugJob>();
    job->name = line.substr(0, blank);
    if (blank != line.npos) job->args = line.substr(blank + 1);
    c->job = job;
    c->deadline = hostNowMs() + RUN_MS;
    {
        std::lock_guard guard(shell.lock);
        shell.waiting.push_back(job);
    }
    signalFd(shell.toTask);
}

// The next step of one client. False: it is done with.
bool serve(debugClient* c, short events) {
    if (c->job != nullptr) {
        if (c->job->done.load(std::memory_order_acquire)) {
            const debugJob& job = *c->job;
            answer(c, job.found ? "OK " + std::to_string(job.out.size()) + "\n" + job.out
                                : "NO no such debug function\n");
        } else if ((events & (POLLHUP | POLLERR)) != 0 || hostNowMs() > c->deadline) {
            return false;
        } else {
            return true;
        }
    }
    if (hostNowMs() > c->deadline) return false;
    if (c->out.empty()) {
        char bytes[1024];
        ssize_t n = recv(c->fd.fd, bytes, sizeof(bytes), MSG_DONTWAIT);
        if (n < 0) return errno == EAGAIN || errno == EINTR;
        if (n == 0) return false;
        c->in.append(bytes, static_cast<size_t>(n));
        size_t end = c->in.find('\n');
        if (end != std::string::npos && end < REQUEST_MAX)
            begin(c, std::string_view(c->in).substr(0, end));
        else if (c->in.size() >= REQUEST_MAX)
            answer(c, "NO the request is too long\n");
        if (c->out.empty()) return true;
    }
    ssize_t n = send(c->fd.fd, c->out.data(), c->out.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n < 0) return errno == EAGAIN || errno == EINTR;
    c->deadline = hostNowMs() + CLIENT_MS;
    c->out.erase(0, static_cast<size_t>(n));
    return !c->out.empty();
}

void acceptClient(std::vector<debugClient>* clients) {
    hostFd fd(accept4(shell.listen.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd.fd >= 0) clients->push_back({std::move(fd), {}, {}, nullptr, hostNowMs() + CLIENT_MS});
}

void listenForClients() {
    std::vector<debugClient> clients;
    while (!shell.stop) {
        bool room = clients.size() < CLIENTS_MAX;
        std::vector<pollfd> fds = {{room ? shell.listen.fd : -1, POLLIN, 0},
                                   {shell.toListener.fd, POLLIN, 0}};
        for (const debugClient& c : clients) {
            short wanted = c.job != nullptr ? 0 : c.out.empty() ? POLLIN : POLLOUT;
            fds.push_back({c.fd.fd, wanted, 0});
        }
        poll(fds.data(), fds.size(), clients.empty() ? -1 : 1000);
        if (fds[1].revents != 0) clearFd(shell.toListener.fd);
        size_t i = 2;
        std::erase_if(clients, [&](debugClient& c) { return !serve(&c, fds[i++].revents); });
        if (fds[0].revents != 0) acceptClient(&clients);
    }
    std::lock_guard guard(shell.lock);
    shell.running = false;
    shell.ended.notify_all();
}

std::string socketName(uint32_t rp) {
    return "debug-rp" + std::to_string(rp);
}

bool openListener() {
    const hostConfig& conf = hostConf();
    sockaddr_un address;
    int dirFd;
    std::string name = socketName(conf.rp);
    if (!hostSocketAddress(conf.runDir, name, &address, &dirFd)) return false;
    hostFd dir(dirFd);
    shell.path = conf.runDir + "/" + name;
    unlink(shell.path.c_str());  // a dead predecessor's: the run folder's lock is ours
    shell.listen = hostFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // The mode is set before the socket has a name, so nobody slips in between.
    if (shell.listen.fd < 0 || fchmod(shell.listen.fd, 0600) != 0 ||
        bind(shell.listen.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(shell.listen.fd, CLIENTS_MAX) != 0)
        return false;
    hostSocketBound(shell.path);
    return true;
}

bool startListener() {
    shell.stop = false;
    shell.running = true;
    try {
        std::thread(listenForClients).detach();
    } catch (const std::exception&) {
        shell.running = false;
    }
    return shell.running;
}

int fail(std::string* out, std::string why) {
    *out = std::move(why);
    return -1;
}

// Waits until the socket is ready; false when the time is up.
bool waitFor(int fd, short event, uint64_t deadline) {
    for (;;) {
        uint64_t now = hostNowMs();
        if (now >= deadline) return false;
        pollfd p{fd, event, 0};
        int n = poll(&p, 1, static_cast<int>(deadline - now));
        if (n > 0) return true;
        if (n < 0 && errno != EINTR) return false;
    }
}

// The length of an answer whose first line is "OK length".
bool answerLength(std::string_view line, size_t* length) {
    if (!line.starts_with("OK ")) return false;
    line.remove_prefix(3);
    auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), *length);
    return error == std::errc() && end == line.data() + line.size() && *length <= ANSWER_MAX;
}

}  // namespace

int zekSwpCreatePipe(const char*) {
    if (shell.running) return shell.toTask.fd;
    shell.toTask = hostFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    shell.toListener = hostFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (shell.toTask.fd < 0 || shell.toListener.fd < 0 || !openListener() || !startListener())
        return -1;
    return shell.toTask.fd;
}

int zekSwpReadPipe(int pipe) {
    if (pipe < 0 || pipe != shell.toTask.fd) return -1;
    clearFd(pipe);
    std::deque<std::weak_ptr<debugJob>> jobs;
    {
        std::lock_guard guard(shell.lock);
        std::swap(jobs, shell.waiting);
    }
    for (auto& weak : jobs) {
        std::shared_ptr<debugJob> job = weak.lock();
        if (job == nullptr) continue;
        job->found = zekDebugRun(job->name, job->args, &job->out);
        job->done.store(true, std::memory_order_release);
        signalFd(shell.toListener);
    }
    return 0;
}

void hostDebugShellStop() {
    std::unique_lock guard(shell.lock);
    if (!shell.running) return;
    shell.stop = true;
    signalFd(shell.toListener);
    shell.ended.wait(guard, [] { return !shell.running; });
    hostSocketGone(shell.path);
    unlink(shell.path.c_str());
    shell.listen.reset();
    shell.waiting.clear();
}

int zekDebugCall(std::string_view runDir, uint32_t rp, std::string_view name, std::string_view args,
                 int timeoutMs, std::string* out) {
    uint64_t deadline =
        timeoutMs < 0 ? UINT64_MAX / 2 : hostNowMs() + static_cast<uint64_t>(timeoutMs);
    constexpr uint64_t farMs = 1u << 30;  // poll counts in int
    deadline = std::min(deadline, hostNowMs() + farMs);
    if (name.empty() || name.find_first_of(" \n") != name.npos || args.find('\n') != args.npos)
        return fail(out, "a debug request is one line, and its name one word");

    sockaddr_un address;
    int dirFd;
    bool found = hostSocketAddress(std::string(runDir), socketName(rp), &address, &dirFd);
    hostFd dir(dirFd);
    hostFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!found || fd.fd < 0 ||
        connect(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        return fail(out, "no manager answers in " + std::string(runDir));

    std::string request = std::string(name) + (args.empty() ? "" : " ") + std::string(args) + "\n";
    std::string in;
    char bytes[65536];
    size_t length = 0, front = 0;  // of the text, and of the line before it, once that is known
    for (size_t sent = 0; front == 0 || in.size() < front + length;) {
        bool sending = sent < request.size();
        if (!waitFor(fd.fd, sending ? POLLOUT : POLLIN, deadline))
            return fail(out, "the manager does not answer");
        if (sending) {
            ssize_t n = send(fd.fd, request.data() + sent, request.size() - sent,
                             MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n > 0) sent += static_cast<size_t>(n);
            if (n < 0 && errno != EAGAIN && errno != EINTR) sent = request.size();  // read why
            continue;
        }
        ssize_t n = recv(fd.fd, bytes, sizeof(bytes), MSG_DONTWAIT);
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (n <= 0) return fail(out, "the manager broke the connection off");
        in.append(bytes, static_cast<size_t>(n));
        size_t end = in.find('\n');
        if (front != 0 || end == std::string::npos) continue;
        front = end + 1;
        if (in.starts_with("NO ")) {
            *out = in.substr(3, end - 3);
            return -2;
        }
        if (!answerLength(std::string_view(in).substr(0, end), &length))
            return fail(out, "the manager's answer cannot be read");
    }
    *out = in.substr(front, length);
    return 0;
}

// What a prefix holds beside the host program: services, drivers, ports and the phonebook of all users.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <filesystem>
#include <memory>
#include <string>

#include <winsvc.h>

std::size_t count(const std::string& text, const std::string& part);

struct ServiceCloser {
    void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceCloser>;

// An installed service. Changed by a test, it is as it was at the end, unless the test uninstalls it.
class Service {
  public:
    explicit Service(const char* serviceName);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void change(DWORD newStartType, const char* newPath = nullptr);
    void remove();
    void uninstall();
    void start();
    void stop();
    DWORD state() const;

    DWORD startType;
    std::string path;

  private:
    const char* name;
    ServiceHandle manager;
    ServiceHandle service;
    bool changed = false;
    bool comesBack = true;
};

// This program listens on TCP port 1723 of 127.0.0.1.
class Listener {
  public:
    Listener();
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

  private:
    SOCKET socket = INVALID_SOCKET;
};

// Whether the TCP port is free on every address.
bool canBind(unsigned short port);

std::filesystem::path systemFolder();
std::filesystem::path phonebookOfAllUsers();

// Writes out the filter driver that the library carries, as if it had the version 4.0.0.`build`.
void writeDriver(const std::filesystem::path& file, char build);
// Stops and deletes the driver's service, if there is one, and deletes its file.
void uninstallDriver(const char* service, const std::filesystem::path& file);

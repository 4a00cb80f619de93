#include "user_messages.h"

#define HELP_PAGE L"http://www.tavik.example/tavik4/faq/core.html"

namespace {

constexpr std::size_t processLineRoom = 256; // wide characters, with the end

struct ProcessLine {
    const wchar_t* before;
    const wchar_t* between;
    const wchar_t* after;
    const wchar_t* unknown;
};

constexpr ProcessLine englishProcessLine = {L"Please check process id ", L" (",
                                            L") to see if it occupies the TCP port 1723.\r\n", L"unknown"};
constexpr ProcessLine chineseProcessLine = {L"请察看进程ID ", L" (",
                                            L") 并检查是否该应用程序占用了TCP端口1723。\r\n", L"未知"};

bool isLeadSurrogate(wchar_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

// At most `room` units of `text`, never half a character.
std::wstring cut(const std::wstring& text, std::size_t room) {
    if (text.size() <= room)
        return text;
    if (room > 0 && isLeadSurrogate(text[room - 1]))
        --room;
    return text.substr(0, room);
}

std::wstring processLine(const ProcessLine& line, DWORD pid, const std::wstring& processName) {
    const std::wstring before = line.before + std::to_wstring(pid) + line.between;
    const std::wstring after = line.after;
    const std::size_t room = processLineRoom - 1 - before.size() - after.size();
    return before + cut(processName.empty() ? line.unknown : processName, room) + after;
}

std::wstring serviceMessage(bool chinese, const wchar_t* englishFirstLine, const wchar_t* chineseFirstLine) {
    if (chinese)
        return std::wstring(chineseFirstLine) +
               L"Tavik核心服务已经停止。\r\n"
               L"请检查你的系统设置以确定这个服务已经启动。\r\n"
               L"然后你可以通过net start TAVIK4CSRV重新启动Tavik核心服务。\r\n"
               L"你可以从 " HELP_PAGE L" 获得更多相关信息。";
    return std::wstring(englishFirstLine) +
           L"Tavik Core Engine Service has stoped.\r\n"
           L"Please check your system to make sure this system service has started.\r\n"
           L"After that, you can 'net start TAVIK4CSRV' to start Tavik Core Engine Service.\r\n"
           L"You can find more infomation about this from " HELP_PAGE L".";
}

} // namespace

std::wstring driverMessage(bool chinese) {
    if (chinese)
        return L"无法安装Kestrin驱动程序。\r\n"
               L"反病毒软件或者系统本地安全策略阻止Tavik核心服务安装kestrin.sys驱动程序。\r\n"
               L"Tavik核心服务已经停止。\r\n"
               L"提示：请修改你的反病毒软件设置或者系统本地安全策略以允许安装此驱动程序。\r\n"
               L"然后你可以通过net start TAVIK4CSRV重新启动Tavik核心服务。\r\n"
               L"你可以从 " HELP_PAGE L" 获得关于这个驱动程序更多的信息。";
    return L"Can't Install 'Kestrin' driver.\r\n"
           L"A policy in your anti-virus or local security setting prevents Tavik Core Engine Service "
           L"to install kestrin.sys driver.\r\n"
           L"Tavik Core Engine Service has stoped.\r\n"
           L"Note: Please modify your anti-virus software settings or local security settings "
           L"to allow the driver\r\n"
           L"After that, you can 'net start TAVIK4CSRV' to start Tavik Core Engine Service.\r\n"
           L"You can find more infomation about this driver from " HELP_PAGE L".";
}

std::wstring tapiSrvMessage(bool chinese) {
    return serviceMessage(chinese, L"Canot enable 'TapiSrv' service.\r\n", L"无法启动TapiSrv系统服务。\r\n");
}

std::wstring rasManMessage(bool chinese) {
    return serviceMessage(chinese, L"Canot enable 'RasMan' service.\r\n", L"无法启动RasMan系统服务。\r\n");
}

std::wstring portMessage(bool chinese, DWORD pid, const std::wstring& processName) {
    const std::wstring line =
        pid != 0 ? processLine(chinese ? chineseProcessLine : englishProcessLine, pid, processName)
                 : std::wstring();
    if (chinese)
        return L"无法绑定TCP端口 1723。\r\n"
               L"Tavik核心服务已经停止。\r\n"
               L"请检查是否有其他应用程序占用了TCP端口1723并且关闭该应用程序。\r\n" +
               line +
               L"然后你可以通过net start TAVIK4CSRV重新启动Tavik核心服务。\r\n"
               L"你可以从 " HELP_PAGE L" 获得更多相关信息。";
    return L"Can't bind TCP port 1723.\r\n"
           L"Tavik Core Engine Service has stoped.\r\n"
           L"Please check which appliaction occupies the TCP port 1723 and close it.\r\n" +
           line +
           L"After that, you can 'net start TAVIK4CSRV' to start Tavik Core Engine Service.\r\n"
           L"You can find more infomation about this from " HELP_PAGE L".";
}

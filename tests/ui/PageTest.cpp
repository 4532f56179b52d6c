// The property page's controls, driven by messages in a frame of the test's own and in the system's.
#include <gtest/gtest.h>
#include <winsock2.h>

#include <filesystem>
#include <fstream>

#include "FakeControl.h"
#include "support/PageFrame.h"
#include "ui/DemuxPropertyPage.h"

namespace kest {
namespace {

CComPtr<IPropertyPage> CreatePage() {
    HRESULT hr = S_OK;
    const CComPtr<IUnknown> pUnknown(CDemuxPropertyPage::CreateInstance(nullptr, &hr)->GetOwner());
    CComPtr<IPropertyPage> pPage;
    pUnknown->QueryInterface(IID_PPV_ARGS(pPage.Put()));
    return pPage;
}

/// The frame with a page for a filter of settings alone.
class CFakeFrame : public CPageFrame {
public:
    CFakeFrame() : CFakeFrame(new CFakeControl) {}
    /// What the setters have been called with since the last time.
    std::string TakeCalls() const { return std::exchange(filter.strCalls, {}); }

    CFakeControl& filter;

private:
    explicit CFakeFrame(CFakeControl* pFilter)
        : CPageFrame(CreatePage(), pFilter->GetOwner()), filter(*pFilter) {}
};

SEND_SETTINGS With(void (*pfnChange)(SEND_SETTINGS&)) {
    SEND_SETTINGS settings;
    pfnChange(settings);
    return settings;
}

TEST(Page, ShowsTheSettingsAndKeepsDemultiplexingOnWhileNothingIsSent) {
    struct Case {
        void (*pfnChange)(SEND_SETTINGS&);
        std::string strShown;
    };
    const Case kCases[] = {
        {[](SEND_SETTINGS&) {}, "234.5.6.7 8100 [5454] - x - - - [-] - a.ts "},
        {[](SEND_SETTINGS& s) { s.bSending = s.bDisableDemux = s.bLocalView = 1, s.nDemuxOutput = 2; },
         "234.5.6.7 8100 5454 x - - x x x - a.ts "},
        {[](SEND_SETTINGS& s) { s.bDisableDemux = 1, s.nDemuxOutput = 7; },
         "234.5.6.7 8100 [5454] - - - - - [-] - a.ts "},
        {[](SEND_SETTINGS& s) { s.nSendPort = 0xFFFFFFFF, s.nLocalPort = 0x80000000; },
         "234.5.6.7 -1 [-2147483648] - x - - - [-] - a.ts "},
    };
    for (const Case& each : kCases) {
        CFakeFrame frame;
        each.pfnChange(frame.filter.settings);
        frame.filter.strDumpFile = "a.ts";
        EXPECT_EQ(each.strShown, frame.Open().Describe());
        EXPECT_EQ(S_FALSE, frame.pPage->IsPageDirty());
        EXPECT_EQ("", frame.TakeCalls()) << "opening the page has changed the filter";
    }
}

// What each control changes, seen after Apply; and nothing of it reaches the filter before.
TEST(Page, AppliesWhatEachControlWasSetTo) {
    struct Case {
        void (*pfnAct)(const CPageFrame&);
        void (*pfnChange)(SEND_SETTINGS&);
    };
    const Case kCases[] = {
        {[](auto& frame) {
             frame.TypeAddress({"10", "1", "2", "3"});
         },
         [](auto& s) { s.dwSendAddr = inet_addr("10.1.2.3"); }},
        {[](auto& frame) {
             frame.TypeAddress({"10", "1", "", ""});
         },
         [](auto& s) { s.dwSendAddr = inet_addr("10.1.0.0"); }},
        {[](auto& frame) { frame.Type(209, "1234"); }, [](auto& s) { s.nSendPort = 1234; }},
        {[](auto& frame) { frame.Type(209, "70000"); }, [](auto& s) { s.nSendPort = 70000; }},
        {[](auto& frame) { frame.Type(209, "4294967295"); }, [](auto& s) { s.nSendPort = 4294967295; }},
        {[](auto& frame) { frame.Type(209, "4294967296"); }, [](auto& s) { s.nSendPort = 0; }},
        {[](auto& frame) { frame.Type(209, "port"); }, [](auto& s) { s.nSendPort = 0; }},
        {[](auto& frame) { frame.Click(215), frame.Type(211, "99"); },
         [](auto& s) { s.bLocalView = 1, s.nLocalPort = 99; }},
        {[](auto& frame) { frame.Click(217); }, [](auto& s) { s.nDemuxOutput = 1; }},
        {[](auto& frame) { frame.Click(218); }, [](auto& s) { s.nDemuxOutput = 2; }},
        {[](auto& frame) { frame.Click(218), frame.Click(216); }, [](auto&) {}},
        {[](auto& frame) { frame.Click(219), frame.Click(220); },
         [](auto& s) { s.bSending = s.bDisableDemux = 1; }},
        {[](auto& frame) { frame.Click(219), frame.Click(220), frame.Click(219); }, [](auto&) {}},
    };
    for (const Case& each : kCases) {
        CFakeFrame frame;
        SCOPED_TRACE(&each - kCases);
        each.pfnAct(frame.Open());
        EXPECT_EQ("", frame.TakeCalls());
        EXPECT_EQ(S_OK, frame.pPage->IsPageDirty());
        EXPECT_LT(0, frame.nDirty);
        EXPECT_EQ(S_OK, frame.pPage->Apply());
        EXPECT_EQ(With(each.pfnChange), frame.filter.settings);
        EXPECT_EQ(S_FALSE, frame.pPage->IsPageDirty());
        frame.TakeCalls();
        EXPECT_EQ(S_OK, frame.pPage->Apply());
        EXPECT_EQ("", frame.TakeCalls()) << "what was applied is applied again";
    }
}

// The order matters: demultiplexing that comes on again takes the published status away before it would be posted.
TEST(Page, AppliesInOrderAndTheDumpOnlyWhenItsSwitchWasChanged) {
    constexpr const char* kSettings =
        "Sending 0 SendAddress 117835242 LocalView 0 LocalPort 5454 SendPort 1 DisableDemux 0 DemuxOutput 0 "
        "Apply ";
    CFakeFrame frame;
    frame.filter.settings.bDisableDemux = 1;
    frame.Open().Type(209, "1");
    const auto Apply = [&] { return frame.pPage->Apply(), frame.TakeCalls(); };
    EXPECT_EQ(kSettings, Apply());
    frame.Click(221);
    EXPECT_EQ("EnableDump 1 ", frame.TakeCalls()) << "the switch waits";
    EXPECT_EQ(std::string(kSettings) + "DumpFileName EnableDump 1 ", Apply());
    frame.Type(223, "b.ts");
    EXPECT_EQ(kSettings, Apply());
    frame.Click(221);
    EXPECT_EQ("EnableDump 0 ", frame.TakeCalls());
    EXPECT_EQ(std::string(kSettings) + "EnableDump 0 ", Apply());
    EXPECT_EQ("", frame.filter.strDumpFile) << "the name went without a change of the switch";
}

TEST(Page, CutsALongFileName) {
    for (const std::size_t nLength : {259, 260, 300}) {
        CFakeFrame frame;
        frame.Open().Type(223, std::string(nLength, 'n'));
        frame.Click(221);
        frame.pPage->Apply();
        EXPECT_EQ(std::string(259, 'n'), frame.filter.strDumpFile);
    }
}

TEST(Page, KeepsEditsWhileItIsClosedAndAppliesNothingByItself) {
    CFakeFrame frame;
    frame.Open().Type(209, "1234");
    frame.Click(218);
    const HWND hwndOld = frame.GetDialog();
    EXPECT_EQ(S_OK, frame.pPage->Deactivate());
    EXPECT_FALSE(IsWindow(hwndOld));
    const RECT rect{0, 0, 380, 250};
    frame.pPage->Activate(frame.hwnd, &rect, FALSE);
    EXPECT_EQ("234.5.6.7 1234 [5454] - - - x - [-] -  ", frame.Describe());
    frame.pPage->Deactivate();
    EXPECT_EQ(S_OK, frame.pPage->SetObjects(0, nullptr));
    EXPECT_EQ(E_UNEXPECTED, frame.pPage->SetObjects(0, nullptr));
    EXPECT_EQ("", frame.TakeCalls());
}

TEST(Page, OnlyTheListedNotificationsOfAnActivePageChangeAnything) {
    CFakeFrame frame;
    frame.Open();
    for (const int nNotification : {EN_SETFOCUS, EN_UPDATE, EN_MAXTEXT}) {
        for (WORD nControl = 200; nControl < 215; ++nControl) {
            SendMessageW(frame.GetDialog(), WM_COMMAND, MAKEWPARAM(nControl, nNotification), 0);
        }
    }
    SendMessageW(frame.GetDialog(), WM_COMMAND, MAKEWPARAM(223, EN_CHANGE), 0);
    EXPECT_EQ(0, frame.nDirty);
    EXPECT_EQ(S_FALSE, frame.pPage->IsPageDirty());
}

TEST(Page, BrowseChangesTheNameThatGoesWithTheNextSwitch) {
    const auto folder = std::filesystem::temp_directory_path() / "kest_page";
    std::filesystem::create_directories(folder);
    const std::string strFile = (folder / "chosen.ts").string();
    std::ofstream(strFile) << "x";
    CFakeFrame frame;
    frame.filter.strDumpFile = "old.ts";
    frame.Open();
    const auto Browse = [&](WPARAM nButton) {
        CModalAnswer answer([&](HWND hwnd) {
            const HWND hwndName = FindChild(hwnd, "Edit", "*.*");
            if (!hwndName) return false;
            SetWindowTextA(hwndName, strFile.c_str());
            PostMessageW(hwnd, WM_COMMAND, nButton, 0);
            return true;
        });
        frame.Click(224);
        EXPECT_TRUE(answer.IsDone()) << "no file dialog with the name *.*";
    };
    Browse(IDCANCEL);
    EXPECT_EQ("old.ts", GetText(frame.GetControl(223)));
    Browse(IDOK);
    EXPECT_EQ(strFile, GetText(frame.GetControl(223)));
    EXPECT_EQ(S_FALSE, frame.pPage->IsPageDirty());
    frame.Click(221);
    frame.pPage->Apply();
    EXPECT_EQ(strFile, frame.filter.strDumpFile);
    std::filesystem::current_path(
        std::filesystem::temp_directory_path());  // the dialog has gone into the folder
    std::filesystem::remove_all(folder);
}

TEST(Page, RefusesWhatComesOutOfOrder) {
    CFakeFrame frame;
    IPropertyPage& page = *frame.pPage;
    const RECT rect{};
    const CComPtr<IUnknown> pNoFilter((new CUnknown)->GetOwner());
    IUnknown* apObjects[] = {pNoFilter.Get(), pNoFilter.Get()};
    EXPECT_EQ(E_NOINTERFACE, page.SetObjects(1, apObjects));
    EXPECT_EQ(E_UNEXPECTED, page.SetObjects(2, apObjects));
    EXPECT_EQ(E_POINTER, page.SetObjects(1, nullptr));
    EXPECT_EQ(E_UNEXPECTED, page.Activate(frame.hwnd, &rect, FALSE)) << "without a filter it is not shown";
    EXPECT_EQ(E_UNEXPECTED, page.Apply());
    EXPECT_EQ(E_UNEXPECTED, page.Show(SW_SHOW));
    EXPECT_EQ(E_UNEXPECTED, page.Move(&rect));
    EXPECT_EQ(E_UNEXPECTED, page.Deactivate());
    EXPECT_EQ(E_UNEXPECTED, page.SetPageSite(&frame));
    frame.Open();
    EXPECT_EQ(E_UNEXPECTED, page.Activate(frame.hwnd, &rect, FALSE));
    EXPECT_EQ(E_INVALIDARG, page.Show(SW_MAXIMIZE));
    EXPECT_EQ(E_POINTER, page.Move(nullptr));
    EXPECT_EQ(E_POINTER, page.GetPageInfo(nullptr));
}

TEST(Page, ReleasedWhileOpenItLeavesNoWindowAndNoReference) {
    {
        CFakeFrame frame;
        frame.Open().Click(219);
        const HWND hwndDialog = frame.GetDialog();
        frame.pPage->SetPageSite(nullptr);
        frame.pPage = nullptr;
        EXPECT_FALSE(IsWindow(hwndDialog));
        EXPECT_EQ(nullptr, GetWindow(frame.hwnd, GW_CHILD));
    }
    EXPECT_FALSE(CUnknown::AnyAlive());
}

}  // namespace
}  // namespace kest

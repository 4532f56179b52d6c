// The property page's controls, driven by messages in a frame of the test's own, on the filter.
#include <gtest/gtest.h>
#include <winsock2.h>

#include <filesystem>
#include <fstream>

#include "PageFrame.h"

namespace kest {
namespace {

/// A folder for dump files, removed at the end.
class CDumpFolder {
public:
    CDumpFolder() { std::filesystem::create_directories(m_path); }
    ~CDumpFolder() {
        std::filesystem::current_path(m_path.parent_path());  // the file dialog goes into the folder
        std::filesystem::remove_all(m_path);
    }
    CDumpFolder(const CDumpFolder&) = delete;
    CDumpFolder& operator=(const CDumpFolder&) = delete;
    std::string GetFile(const std::string& strName) const { return (m_path / strName).string(); }

private:
    const std::filesystem::path m_path =
        std::filesystem::temp_directory_path() / "kest_page" / std::string(90, 'p');
};

SEND_SETTINGS With(void (*pfnChange)(SEND_SETTINGS&)) {
    SEND_SETTINGS settings;
    pfnChange(settings);
    return settings;
}

TEST(Page, ShowsTheSettingsAndKeepsDemultiplexingOnWhileNothingIsSent) {
    struct Case {
        void (*pfnSet)(IKestDemux2Control&);
        std::string strShown;
    };
    const Case kCases[] = {
        {[](auto&) {}, "234.5.6.7 8100 [5454] - x - - - [-] -  "},
        {[](auto& filter) {
             filter.put_Sending(1), filter.put_DisableDemux(1), filter.put_LocalView(1),
                 filter.put_DemuxOutput(2);
             filter.put_EnableDump(1);
         },
         "234.5.6.7 8100 5454 x - - x x x x  "},
        {[](auto& filter) { filter.put_DisableDemux(1), filter.put_DemuxOutput(7); },
         "234.5.6.7 8100 [5454] - - - - - [-] -  "},
        {[](auto& filter) { filter.put_SendPort(0xFFFFFFFF), filter.put_LocalPort(0x80000000); },
         "234.5.6.7 -1 [-2147483648] - x - - - [-] -  "},
    };
    for (const Case& each : kCases) {
        CPageFrame frame;
        each.pfnSet(*frame.pFilter);
        const SEND_SETTINGS before = frame.GetSettings();
        EXPECT_EQ(each.strShown, frame.Open().Describe());
        EXPECT_EQ(S_FALSE, frame.pPage->IsPageDirty());
        EXPECT_EQ(before, frame.GetSettings()) << "opening the page has changed the filter";
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
        CPageFrame frame;
        SCOPED_TRACE(&each - kCases);
        each.pfnAct(frame.Open());
        EXPECT_EQ(SEND_SETTINGS{}, frame.GetSettings());
        EXPECT_EQ(S_OK, frame.pPage->IsPageDirty());
        EXPECT_LT(0, frame.nDirty);
        EXPECT_EQ(S_OK, frame.pPage->Apply());
        EXPECT_EQ(With(each.pfnChange), frame.GetSettings());
        EXPECT_EQ(S_FALSE, frame.pPage->IsPageDirty());
        frame.pFilter->put_LocalPort(1);
        EXPECT_EQ(S_OK, frame.pPage->Apply());
        EXPECT_EQ(1u, frame.GetSettings().nLocalPort) << "what was applied is applied again";
    }
}

// Demultiplexing that comes on again takes the published status away before it would be posted; while it is off the
// settings are posted.
TEST(Page, AppliesTheSwitchOfTheDemultiplexerBeforeTheStatusIsPosted) {
    CPageFrame frame;
    SHARED_STATUS status;
    frame.Open().Click(219);
    frame.Click(220);
    frame.pPage->Apply();
    EXPECT_EQ(S_OK, frame.pFilter->get_RemoteStatus(&status));
    EXPECT_EQ(frame.GetSettings(), status.settings);
    frame.Click(219);
    frame.pPage->Apply();
    EXPECT_EQ(0, frame.GetSettings().bDisableDemux) << "off without sending";
    SHARED_STATUS unread;
    frame.pFilter->get_RemoteStatus(&unread);
    EXPECT_EQ(SHARED_STATUS{}, unread) << "the status was posted";
}

TEST(Page, SwitchesTheDumpAtOnceAndAppliesItsNameOnlyAfterASwitch) {
    const CDumpFolder folder;
    const std::string strFirst = folder.GetFile("a.ts"), strSecond = folder.GetFile("b.ts");
    CPageFrame frame;
    frame.Open().Type(223, strFirst);
    frame.pPage->Apply();
    EXPECT_EQ("", frame.GetDump()) << "the name went without a change of the switch";
    frame.Click(221);
    EXPECT_EQ("*", frame.GetDump()) << "the switch waits";
    frame.pPage->Apply();
    EXPECT_EQ("*" + strFirst, frame.GetDump());
    frame.Type(223, strSecond);
    frame.pPage->Apply();
    EXPECT_EQ("*" + strFirst, frame.GetDump());
    frame.Click(221);
    EXPECT_EQ(strFirst, frame.GetDump());
    frame.pFilter->put_EnableDump(1);
    frame.pPage->Apply();
    EXPECT_EQ(strFirst, frame.GetDump()) << "Apply does not switch it off again";
    frame.pFilter->put_EnableDump(1);
    frame.Click(218);
    frame.pPage->Apply();
    EXPECT_EQ("*" + strFirst, frame.GetDump()) << "Apply of an untouched switch";
}

TEST(Page, CutsALongFileName) {
    const CDumpFolder folder;
    const std::string strBegin = folder.GetFile("");
    for (const std::size_t nLength : {259, 260, 300}) {
        CPageFrame frame;
        frame.Open().Type(223, strBegin + std::string(nLength - strBegin.size(), 'n'));
        frame.Click(221);
        frame.pPage->Apply();
        EXPECT_EQ("*" + strBegin + std::string(259 - strBegin.size(), 'n'), frame.GetDump());
    }
}

TEST(Page, KeepsEditsWhileItIsClosedAndAppliesNothingByItself) {
    CPageFrame frame;
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
    EXPECT_EQ(SEND_SETTINGS{}, frame.GetSettings());
}

TEST(Page, OnlyTheListedNotificationsOfAnActivePageChangeAnything) {
    CPageFrame frame;
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
    const CDumpFolder folder;
    const std::string strFile = folder.GetFile("chosen.ts");
    std::ofstream(strFile) << "x";
    CPageFrame frame;
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
    EXPECT_EQ("", GetText(frame.GetControl(223)));
    Browse(IDOK);
    EXPECT_EQ(strFile, GetText(frame.GetControl(223)));
    EXPECT_EQ(S_FALSE, frame.pPage->IsPageDirty());
    frame.Click(221);
    frame.pPage->Apply();
    EXPECT_EQ("*" + strFile, frame.GetDump());
}

TEST(Page, RefusesWhatComesOutOfOrder) {
    CPageFrame frame;
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
        CPageFrame frame;
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

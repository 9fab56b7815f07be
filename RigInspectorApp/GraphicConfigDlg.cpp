#include "GraphicConfigDlg.h"

#include "Inspector.h"
#include "InspectorApp.h"
#include "RigInspector/Diagnostics.h"
#include "share/common/StringUtil.h"

const std::string g_optionFile = "../game/option.ini";

GraphicRecommendation RecommendGraphicOptions(std::int32_t cpuSpeed, std::int32_t videoMemory,
                                              std::int32_t systemMemory)
{
    using Tier = GraphicRecommendation::Tier;
    if (cpuSpeed > 1000 && videoMemory > 31 && systemMemory > 255)
        return {Tier::High, true, true, true, true};
    if (videoMemory > 31)
        return {Tier::Middle, true, true, true, false};
    return {Tier::Low, false, false, false, false};
}

const char* TierName(GraphicRecommendation::Tier tier)
{
    switch (tier)
    {
    case GraphicRecommendation::Tier::High:
        return "high";
    case GraphicRecommendation::Tier::Middle:
        return "middle";
    case GraphicRecommendation::Tier::Low:
        break;
    }
    return "low";
}

CGraphicConfigDlg::CGraphicConfigDlg(ProfileWriter writer)
    : CDialogLogic(kTemplateId), m_writer(std::move(writer))
{
}

bool CGraphicConfigDlg::OnInitDialog()
{
    m_pCharHigh = GetDlgItem(IDC_CHAR_HIGH);
    m_pCharLow = GetDlgItem(IDC_CHAR_LOW);
    m_pShadowHigh = GetDlgItem(IDC_SHADOW_HIGH);
    m_pShadowLow = GetDlgItem(IDC_SHADOW_LOW);
    m_pSpectatorsHigh = GetDlgItem(IDC_SPECTATORS_HIGH);
    m_pSpectatorsLow = GetDlgItem(IDC_SPECTATORS_LOW);
    m_pPipHigh = GetDlgItem(IDC_PIP_HIGH);
    m_pPipLow = GetDlgItem(IDC_PIP_LOW);
    Recommend();
    return true;
}

namespace
{
void SetCheck(IControl* pButton, bool bChecked)
{
    if (pButton)
        pButton->SetCheck(bChecked ? 1 : 0);
}

bool IsChecked(const IControl* pButton)
{
    return pButton != nullptr && pButton->GetCheck() == 1;
}
} // namespace

void CGraphicConfigDlg::Recommend()
{
    const GraphicRecommendation r = RecommendGraphicOptions(g_inspector.m_CpuSpeed, g_inspector.m_VideoMemory,
                                                            g_inspector.m_SystemMemory);
    SetCheck(m_pCharHigh, r.charHigh);
    SetCheck(m_pCharLow, !r.charHigh);
    SetCheck(m_pShadowHigh, r.shadowHigh);
    SetCheck(m_pShadowLow, !r.shadowHigh);
    SetCheck(m_pSpectatorsHigh, r.spectatorsHigh);
    SetCheck(m_pSpectatorsLow, !r.spectatorsHigh);
    SetCheck(m_pPipHigh, r.pipHigh);
    SetCheck(m_pPipLow, !r.pipHigh);
}

bool CGraphicConfigDlg::WriteOptions()
{
    const struct
    {
        const char16_t* key;
        const IControl* pHigh;
    } options[] = {
        {u"shadow", m_pShadowHigh},
        {u"audience", m_pSpectatorsHigh},
        {u"event_screen", m_pPipHigh},
        {u"char_lod", m_pCharHigh},
    };
    // One write for the four: a run ended between two keys must not leave the
    // game with some of the old choices and some of the new.
    std::vector<std::pair<tstring, tstring>> entries;
    for (const auto& option : options)
        entries.emplace_back(option.key, IsChecked(option.pHigh) ? u"1" : u"0");
    tstring why;
    if (m_writer(u"video", entries, g_optionFile, &why))
        return true;
    // The desktop says nothing when its dialog has closed; the run's history
    // keeps this, naming the file as the system resolved it, so a player (or
    // support) can see which folder refused the write and why.
    const tstring reason = why.empty() ? tstring(u"unknown error") : why;
    const std::string full = FullProfilePath(g_optionFile);
    GetDiagnostics().Add("options_write_failed",
                         full == g_optionFile
                             ? zul::FormatString(u"The graphic options could not be written to %s (%s).",
                                                 zul::Utf8ToUtf16(g_optionFile), reason)
                             : zul::FormatString(u"The graphic options could not be written to %s (%s: %s).",
                                                 zul::Utf8ToUtf16(g_optionFile), zul::Utf8ToUtf16(full),
                                                 reason));
    return false;
}

void CGraphicConfigDlg::OnBnClickedOk()
{
    OnOK();
    m_lastWriteResult = WriteOptions();
    Leave();
}

void CGraphicConfigDlg::OnBnClickedCancel()
{
    OnCancel();
    Leave();
}

void CGraphicConfigDlg::Leave()
{
    UiToolkit& toolkit = GetToolkit();
    if (theApp.m_bRunPatcher)
        toolkit.StartProcess(kPatcherCommand, kShowMode);
    toolkit.PostQuitMessage(0);
}

void CGraphicConfigDlg::OnCommand(int nId)
{
    switch (nId)
    {
    case IDOK:
        OnBnClickedOk();
        break;
    case IDCANCEL:
        OnBnClickedCancel();
        break;
    case kRecommendButtonId:
        Recommend();
        break;
    default:
        break;
    }
}

#pragma once
// The graphic configuration dialog's logic: recommends four options from the
// measured values and writes the chosen ones to the game's options file.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "DialogIds.h"
#include "IniFile.h"
#include "UiToolkit.h"
#include "share/common/TString.h"

/// The game's options file, relative to the working directory.
extern const std::string g_optionFile;

/// One of the three recommendation tiers with its four choices (true = High).
struct GraphicRecommendation
{
    enum class Tier
    {
        Low,
        Middle,
        High
    };
    Tier tier = Tier::Low;
    bool charHigh = false;
    bool shadowHigh = false;
    bool spectatorsHigh = false;
    bool pipHigh = false;
};

/// The tier for the measured values (MHz, report megabytes), compared signed.
GraphicRecommendation RecommendGraphicOptions(std::int32_t cpuSpeed, std::int32_t videoMemory,
                                              std::int32_t systemMemory);

/// "high", "middle" or "low".
const char* TierName(GraphicRecommendation::Tier tier);

/// The profile write WriteOptions uses (WritePrivateProfileStrings' shape);
/// replaceable so tests can watch the order and make a write fail.
using ProfileWriter =
    std::function<bool(const tstring& section, const std::vector<std::pair<tstring, tstring>>& entries,
                       const std::string& path, tstring* pWhy)>;

class CGraphicConfigDlg : public CDialogLogic
{
public:
    static constexpr int kTemplateId = IDD_GRAPHIC_CONFIG_DIALOG;
    static constexpr int kRecommendButtonId = IDC_RECOMMEND;
    static constexpr char kPatcherCommand[] = "./patcher.exe";
    static constexpr int kShowMode = 5; // SW_SHOW

    explicit CGraphicConfigDlg(ProfileWriter writer = &WritePrivateProfileStrings);

    bool OnInitDialog() override;
    /// Checks the buttons for g_inspector's measured values, 1001 to 1008 in order.
    void Recommend();
    /// Writes shadow, audience, event_screen, char_lod as one unit: all four
    /// or none (a failure is a diagnostic). True when they were written.
    bool WriteOptions();
    void OnBnClickedOk();
    void OnBnClickedCancel();
    void OnCommand(int nId) override;

    /// WriteOptions' result from "Accept", or nothing when it did not run.
    std::optional<bool> GetLastWriteResult() const { return m_lastWriteResult; }

private:
    void Leave();

    ProfileWriter m_writer;
    std::optional<bool> m_lastWriteResult;

    IControl* m_pCharHigh = nullptr;       // 1001
    IControl* m_pCharLow = nullptr;        // 1002
    IControl* m_pShadowHigh = nullptr;     // 1003
    IControl* m_pShadowLow = nullptr;      // 1004
    IControl* m_pSpectatorsHigh = nullptr; // 1005
    IControl* m_pSpectatorsLow = nullptr;  // 1006
    IControl* m_pPipHigh = nullptr;        // 1007
    IControl* m_pPipLow = nullptr;         // 1008
};

#include "UiToolkit.h"

#include "share/common/Assert.h"

namespace
{
UiToolkit* g_pToolkit = nullptr;
}

UiToolkit& GetToolkit()
{
    ZUL_ASSERT(g_pToolkit != nullptr);
    return *g_pToolkit;
}

void SetToolkit(UiToolkit* pToolkit)
{
    g_pToolkit = pToolkit;
}

#include "Win32ReportView.h"

#include <docobj.h>
#include <exdisp.h>
#include <mshtml.h>
#include <ole2.h>
#include <richedit.h>
#include <shellapi.h>

#include <cstring>
#include <string>

#include "RigInspectorApp/ReportRtf.h"
#include "Win32Dpi.h"

namespace
{
// MSHTML's document object; MinGW's uuid library does not carry its class id.
constexpr CLSID kClsidHtmlDocument = {
    0x25336920, 0x03F9, 0x11CF, {0x8F, 0xD0, 0x00, 0xAA, 0x00, 0x68, 0x6F, 0x13}};
constexpr DISPID kDispidNavigate = 104;
constexpr DISPID kDispidDocument = 203;

/// Releases a COM interface at the end of a scope.
template <class T> class ComPtr
{
public:
    ComPtr() = default;
    ComPtr(const ComPtr&) = delete;
    ComPtr& operator=(const ComPtr&) = delete;
    ~ComPtr()
    {
        if (m_p != nullptr)
            m_p->Release();
    }
    T* operator->() const { return m_p; }
    T* Get() const { return m_p; }
    T** Out() { return &m_p; }
    void** OutVoid() { return reinterpret_cast<void**>(&m_p); }

private:
    T* m_p = nullptr;
};

// The WebBrowser control's container: the smallest site an in-place active
// control needs (a window to live in, its position, a frame that accepts
// everything and offers no menus, tool space or accelerators).
class BrowserSite final : public IOleClientSite, public IOleInPlaceSite, public IOleInPlaceFrame
{
public:
    BrowserSite(HWND hHost, const RECT& rect) : m_hHost(hHost), m_Rect(rect) {}
    void SetRect(const RECT& rect) { m_Rect = rect; }
    BrowserSite(const BrowserSite&) = delete;
    BrowserSite& operator=(const BrowserSite&) = delete;
    virtual ~BrowserSite() = default;

    // IUnknown. The view owns the site and outlives the control's references.
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (ppv == nullptr)
            return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IOleClientSite)
            *ppv = static_cast<IOleClientSite*>(this);
        else if (riid == IID_IOleWindow || riid == IID_IOleInPlaceSite)
            *ppv = static_cast<IOleInPlaceSite*>(this);
        else if (riid == IID_IOleInPlaceUIWindow || riid == IID_IOleInPlaceFrame)
            *ppv = static_cast<IOleInPlaceFrame*>(this);
        else
        {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_nRefs; }
    STDMETHODIMP_(ULONG) Release() override { return --m_nRefs; }

    // IOleClientSite.
    STDMETHODIMP SaveObject() override { return E_NOTIMPL; }
    STDMETHODIMP GetMoniker(DWORD, DWORD, IMoniker** ppmk) override
    {
        *ppmk = nullptr;
        return E_NOTIMPL;
    }
    STDMETHODIMP GetContainer(IOleContainer** ppContainer) override
    {
        *ppContainer = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP ShowObject() override { return S_OK; }
    STDMETHODIMP OnShowWindow(BOOL) override { return S_OK; }
    STDMETHODIMP RequestNewObjectLayout() override { return E_NOTIMPL; }

    // IOleWindow, for the site and the frame alike.
    STDMETHODIMP GetWindow(HWND* phwnd) override
    {
        *phwnd = m_hHost;
        return S_OK;
    }
    STDMETHODIMP ContextSensitiveHelp(BOOL) override { return E_NOTIMPL; }

    // IOleInPlaceSite.
    STDMETHODIMP CanInPlaceActivate() override { return S_OK; }
    STDMETHODIMP OnInPlaceActivate() override { return S_OK; }
    STDMETHODIMP OnUIActivate() override { return S_OK; }
    STDMETHODIMP GetWindowContext(IOleInPlaceFrame** ppFrame, IOleInPlaceUIWindow** ppDoc, LPRECT lprcPosRect,
                                  LPRECT lprcClipRect, LPOLEINPLACEFRAMEINFO lpFrameInfo) override
    {
        *ppFrame = this;
        AddRef();
        *ppDoc = nullptr;
        *lprcPosRect = m_Rect;
        *lprcClipRect = m_Rect;
        lpFrameInfo->fMDIApp = FALSE;
        lpFrameInfo->hwndFrame = ::GetAncestor(m_hHost, GA_ROOT);
        lpFrameInfo->haccel = nullptr;
        lpFrameInfo->cAccelEntries = 0;
        return S_OK;
    }
    STDMETHODIMP Scroll(SIZE) override { return E_NOTIMPL; }
    STDMETHODIMP OnUIDeactivate(BOOL) override { return S_OK; }
    STDMETHODIMP OnInPlaceDeactivate() override { return S_OK; }
    STDMETHODIMP DiscardUndoState() override { return E_NOTIMPL; }
    STDMETHODIMP DeactivateAndUndo() override { return E_NOTIMPL; }
    STDMETHODIMP OnPosRectChange(LPCRECT) override { return S_OK; }

    // IOleInPlaceUIWindow.
    STDMETHODIMP GetBorder(LPRECT) override { return E_NOTIMPL; }
    STDMETHODIMP RequestBorderSpace(LPCBORDERWIDTHS) override { return E_NOTIMPL; }
    STDMETHODIMP SetBorderSpace(LPCBORDERWIDTHS) override { return E_NOTIMPL; }
    STDMETHODIMP SetActiveObject(IOleInPlaceActiveObject*, LPCOLESTR) override { return S_OK; }

    // IOleInPlaceFrame.
    STDMETHODIMP InsertMenus(HMENU, LPOLEMENUGROUPWIDTHS) override { return E_NOTIMPL; }
    STDMETHODIMP SetMenu(HMENU, HOLEMENU, HWND) override { return S_OK; }
    STDMETHODIMP RemoveMenus(HMENU) override { return E_NOTIMPL; }
    STDMETHODIMP SetStatusText(LPCOLESTR) override { return S_OK; }
    STDMETHODIMP EnableModeless(BOOL) override { return S_OK; }
    STDMETHODIMP TranslateAccelerator(LPMSG, WORD) override { return S_FALSE; }

private:
    HWND m_hHost;
    RECT m_Rect;
    ULONG m_nRefs = 0;
};

class WebBrowserView final : public Win32ReportView
{
public:
    WebBrowserView(HWND hDialog, int nId, const RECT& rect) : m_nZoom(ZoomForDpi(WindowDpi(hDialog)))
    {
        // The control lives in a plain child window of the dialog that
        // carries the template's id and position.
        m_hHost = ::CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, rect.left,
                                    rect.top, rect.right - rect.left, rect.bottom - rect.top, hDialog,
                                    reinterpret_cast<HMENU>(static_cast<INT_PTR>(nId)), nullptr, nullptr);
        const RECT inner{0, 0, rect.right - rect.left, rect.bottom - rect.top};
        m_pSite = std::make_unique<BrowserSite>(m_hHost, inner);
        if (FAILED(::CoCreateInstance(CLSID_WebBrowser, nullptr, CLSCTX_INPROC_SERVER, IID_IOleObject,
                                      reinterpret_cast<void**>(&m_pObject))))
            return;
        m_pObject->SetClientSite(m_pSite.get());
        ::OleSetContainedObject(m_pObject, TRUE);
        RECT pos = inner;
        m_pObject->DoVerb(OLEIVERB_INPLACEACTIVATE, nullptr, m_pSite.get(), 0, m_hHost, &pos);
        // Navigate and Document are automation calls on the control's
        // IDispatch, by dispatch id.
        m_pObject->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&m_pBrowser));
        m_pObject->QueryInterface(IID_IOleInPlaceActiveObject, reinterpret_cast<void**>(&m_pActive));
    }

    ~WebBrowserView() override
    {
        if (m_pActive != nullptr)
            m_pActive->Release();
        if (m_pBrowser != nullptr)
            m_pBrowser->Release();
        if (m_pObject != nullptr)
        {
            m_pObject->Close(OLECLOSE_NOSAVE);
            m_pObject->SetClientSite(nullptr);
            m_pObject->Release();
        }
        if (m_hHost != nullptr)
            ::DestroyWindow(m_hHost);
    }

    void Navigate(const tstring& url) override
    {
        if (m_pBrowser == nullptr)
            return;
        // The URL, then Flags, TargetFrameName, PostData and Headers as null
        // VARIANT pointers; arguments go in reverse order.
        VARIANTARG args[5];
        for (VARIANTARG& arg : args)
        {
            ::VariantInit(&arg);
            arg.vt = VT_VARIANT | VT_BYREF;
            arg.pvarVal = nullptr;
        }
        args[4].vt = VT_BSTR;
        args[4].bstrVal = ::SysAllocString(reinterpret_cast<const OLECHAR*>(url.c_str()));
        DISPPARAMS params{args, nullptr, 5, 0};
        m_pBrowser->Invoke(kDispidNavigate, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr,
                           nullptr, nullptr);
        ::SysFreeString(args[4].bstrVal);
    }

    bool HasDocument() const override
    {
        ComPtr<IDispatch> pDocument;
        return GetDocument(pDocument);
    }

    bool LoadDocument(const char16_t* pStream, std::size_t nBytes) override
    {
        const HGLOBAL hBlock = ::GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, nBytes);
        if (hBlock == nullptr)
            return false;
        std::memcpy(reinterpret_cast<void*>(hBlock), pStream, nBytes);
        bool bLoaded = false;
        {
            ComPtr<IStream> pIStream;
            ComPtr<IDispatch> pDocument;
            ComPtr<IPersistStreamInit> pPersist;
            if (SUCCEEDED(::CreateStreamOnHGlobal(hBlock, FALSE, pIStream.Out())) && GetDocument(pDocument) &&
                SUCCEEDED(pDocument->QueryInterface(IID_IPersistStreamInit, pPersist.OutVoid())) &&
                SUCCEEDED(pPersist->InitNew()))
            {
                pPersist->Load(pIStream.Get()); // its result is not examined
                bLoaded = true;
            }
        }
        ::GlobalFree(hBlock);
        // The control takes a zoom only once it has a document to show.
        if (bLoaded && m_nZoomShown != m_nZoom)
            ApplyZoom();
        return bLoaded;
    }

    bool ScrollToEnd() override
    {
        ComPtr<IDispatch> pDocument;
        ComPtr<IHTMLDocument2> pHtml;
        ComPtr<IHTMLElement> pBody;
        ComPtr<IHTMLTextContainer> pContainer;
        long nHeight = 0;
        if (!GetDocument(pDocument) ||
            FAILED(pDocument->QueryInterface(IID_IHTMLDocument2, pHtml.OutVoid())) ||
            FAILED(pHtml->get_body(pBody.Out())) || pBody.Get() == nullptr ||
            FAILED(pBody->QueryInterface(IID_IHTMLTextContainer, pContainer.OutVoid())) ||
            FAILED(pContainer->get_scrollHeight(&nHeight)))
            return false;
        return SUCCEEDED(pContainer->put_scrollTop(nHeight));
    }

    bool OnNotify(const NMHDR*) override { return false; }

    bool PreTranslateMessage(MSG& msg) override
    {
        // While the control has the focus its keys go to it first, as the
        // dialog manager would otherwise take arrows and Page Down for
        // moving between buttons, and the control sees no Ctrl+C.
        if (m_pActive == nullptr || msg.message < WM_KEYFIRST || msg.message > WM_KEYLAST)
            return false;
        if (msg.hwnd != m_hHost && ::IsChild(m_hHost, msg.hwnd) == FALSE)
            return false;
        return m_pActive->TranslateAccelerator(&msg) == S_OK;
    }

    void SetBounds(const RECT& rect, UINT dpi) override
    {
        if (m_hHost == nullptr)
            return;
        ::MoveWindow(m_hHost, rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top, TRUE);
        const RECT inner{0, 0, rect.right - rect.left, rect.bottom - rect.top};
        m_pSite->SetRect(inner);
        ComPtr<IOleInPlaceObject> pInPlace;
        if (m_pObject != nullptr &&
            SUCCEEDED(m_pObject->QueryInterface(IID_IOleInPlaceObject, pInPlace.OutVoid())))
            pInPlace->SetObjectRects(&inner, &inner);
        m_nZoom = ZoomForDpi(dpi);
        if (HasDocument())
            ApplyZoom();
    }

private:
    // The control draws pages at 96 DPI unless told otherwise: its optical
    // zoom (as ExecWB would set it) scales the report with the window.
    static long ZoomForDpi(UINT dpi) { return ::MulDiv(100, static_cast<int>(dpi), USER_DEFAULT_SCREEN_DPI); }
    void ApplyZoom()
    {
        ComPtr<IOleCommandTarget> pTarget;
        if (m_pObject == nullptr ||
            FAILED(m_pObject->QueryInterface(IID_IOleCommandTarget, pTarget.OutVoid())))
            return;
        VARIANT zoom;
        ::VariantInit(&zoom);
        zoom.vt = VT_I4;
        zoom.lVal = m_nZoom;
        if (SUCCEEDED(
                pTarget->Exec(nullptr, OLECMDID_OPTICAL_ZOOM, OLECMDEXECOPT_DONTPROMPTUSER, &zoom, nullptr)))
            m_nZoomShown = m_nZoom;
    }

    bool GetDocument(ComPtr<IDispatch>& pDocument) const
    {
        if (m_pBrowser == nullptr)
            return false;
        DISPPARAMS noArgs{nullptr, nullptr, 0, 0};
        VARIANT result;
        ::VariantInit(&result);
        if (FAILED(m_pBrowser->Invoke(kDispidDocument, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET,
                                      &noArgs, &result, nullptr, nullptr)))
            return false;
        if (result.vt == VT_DISPATCH && result.pdispVal != nullptr)
            *pDocument.Out() = result.pdispVal; // the reference moves over
        else
            ::VariantClear(&result);
        return pDocument.Get() != nullptr;
    }

    HWND m_hHost = nullptr;
    std::unique_ptr<BrowserSite> m_pSite;
    IOleObject* m_pObject = nullptr;
    IDispatch* m_pBrowser = nullptr;
    IOleInPlaceActiveObject* m_pActive = nullptr;
    long m_nZoom;
    long m_nZoomShown = 0;
};

class RichEditView final : public Win32ReportView
{
public:
    RichEditView(HWND hDialog, int nId, const RECT& rect)
    {
        m_hLibrary = ::LoadLibraryW(L"msftedit.dll");
        m_hEdit = ::CreateWindowExW(
            WS_EX_CLIENTEDGE, MSFTEDIT_CLASS, L"",
            WS_CHILD | WS_VISIBLE | WS_VSCROLL | ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL, rect.left,
            rect.top, rect.right - rect.left, rect.bottom - rect.top, hDialog,
            reinterpret_cast<HMENU>(static_cast<INT_PTR>(nId)), nullptr, nullptr);
        if (m_hEdit != nullptr)
            ::SendMessageW(m_hEdit, EM_SETEVENTMASK, 0, ENM_LINK);
    }

    ~RichEditView() override
    {
        if (m_hEdit != nullptr)
            ::DestroyWindow(m_hEdit);
        if (m_hLibrary != nullptr)
            ::FreeLibrary(m_hLibrary);
    }

    // The view has its (empty) document as soon as it is asked for one:
    // nothing is fetched.
    void Navigate(const tstring&) override { m_bHasDocument = m_hEdit != nullptr; }
    bool HasDocument() const override { return m_bHasDocument; }

    bool LoadDocument(const char16_t* pStream, std::size_t nBytes) override
    {
        if (!m_bHasDocument || pStream == nullptr)
            return false;
        std::size_t nUnits = nBytes / sizeof(char16_t);
        for (std::size_t i = 0; i < nUnits; ++i)
        {
            if (pStream[i] == 0)
            {
                nUnits = i;
                break;
            }
        }
        m_Report = ReportHtmlToRtf(std::u16string_view(pStream, nUnits));
        SETTEXTEX setText{ST_DEFAULT, CP_ACP};
        ::SendMessageW(m_hEdit, EM_SETTEXTEX, reinterpret_cast<WPARAM>(&setText),
                       reinterpret_cast<LPARAM>(m_Report.rtf.c_str()));
        for (const RtfLink& link : m_Report.links)
        {
            CHARRANGE range{link.cpMin, link.cpMax};
            ::SendMessageW(m_hEdit, EM_EXSETSEL, 0, reinterpret_cast<LPARAM>(&range));
            CHARFORMAT2W format{};
            format.cbSize = sizeof format;
            format.dwMask = CFM_LINK;
            format.dwEffects = CFE_LINK;
            ::SendMessageW(m_hEdit, EM_SETCHARFORMAT, SCF_SELECTION, reinterpret_cast<LPARAM>(&format));
        }
        // Reloading resets the view to the top; the newest line is what matters.
        ScrollToEnd();
        return true;
    }

    bool ScrollToEnd() override
    {
        if (!m_bHasDocument)
            return false;
        ::SendMessageW(m_hEdit, EM_SETSEL, static_cast<WPARAM>(-1), -1);
        ::SendMessageW(m_hEdit, WM_VSCROLL, SB_BOTTOM, 0);
        return true;
    }

    bool OnNotify(const NMHDR* pHeader) override
    {
        if (pHeader == nullptr || pHeader->hwndFrom != m_hEdit || pHeader->code != EN_LINK)
            return false;
        const auto* pLink = reinterpret_cast<const ENLINK*>(pHeader);
        if (pLink->msg != WM_LBUTTONUP)
            return false;
        // Links (target=_blank in the report) belong in the user's browser.
        if (const RtfLink* pTarget = FindRtfLink(m_Report, pLink->chrg.cpMin))
            ::ShellExecuteW(nullptr, L"open", reinterpret_cast<LPCWSTR>(pTarget->url.c_str()), nullptr,
                            nullptr, SW_SHOWNORMAL);
        return true;
    }

    // RichEdit handles its keys itself (and the dialog manager leaves them to it).
    bool PreTranslateMessage(MSG&) override { return false; }

    // The sizes in its text are in points, which the control converts at
    // its window's DPI.
    void SetBounds(const RECT& rect, UINT) override
    {
        ::MoveWindow(m_hEdit, rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top, TRUE);
    }

private:
    HMODULE m_hLibrary = nullptr;
    HWND m_hEdit = nullptr;
    bool m_bHasDocument = false;
    RtfReport m_Report;
};

template <class T> void ReleaseIf(T* p)
{
    if (p != nullptr)
        p->Release();
}
} // namespace

ReportViewKind ChooseReportView(const ReportViewProbe& probe)
{
    return SUCCEEDED(probe.hrBrowser) && SUCCEEDED(probe.hrHtmlDocument) ? ReportViewKind::WebBrowser
                                                                         : ReportViewKind::RichEdit;
}

ReportViewProbe ProbeReportView()
{
    IUnknown* pBrowser = nullptr;
    IUnknown* pDocument = nullptr;
    const ReportViewProbe probe{
        ::CoCreateInstance(CLSID_WebBrowser, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                           reinterpret_cast<void**>(&pBrowser)),
        ::CoCreateInstance(kClsidHtmlDocument, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                           reinterpret_cast<void**>(&pDocument)),
    };
    ReleaseIf(pBrowser);
    ReleaseIf(pDocument);
    return probe;
}

std::unique_ptr<Win32ReportView> CreateReportView(HWND hDialog, int nId, const RECT& rect)
{
    if (ChooseReportView(ProbeReportView()) == ReportViewKind::WebBrowser)
        return std::make_unique<WebBrowserView>(hDialog, nId, rect);
    return std::make_unique<RichEditView>(hDialog, nId, rect);
}

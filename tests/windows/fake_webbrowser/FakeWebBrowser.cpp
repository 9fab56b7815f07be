// A stand-in for the WebBrowser control and its HTML document, for tests only:
// an in-process COM server that the test prefix registers under the
// control's and the document's class ids, so the desktop front end's
// browser path runs under a Wine that has no HTML engine. It does only what
// the report view asks of the real control, and writes down what it was
// asked: events.log and one stream-N.bin per loaded stream, in the folder
// named by RIG_FAKE_BROWSER_LOG (nothing is written without it).
//
// The interfaces are the C declarations of the system headers (CINTERFACE):
// IHTMLDocument2 and IHTMLElement have well over a hundred methods, of which
// one is used. Every slot starts as a function that returns E_NOTIMPL, which
// is sound on x64, where the caller removes what it pushed; the used slots
// are then set by name, so the compiler checks their signatures.
#define CINTERFACE
#define COBJMACROS
#include <windows.h>

#include <docobj.h>
#include <exdisp.h>
#include <mshtml.h>
#include <ole2.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace
{
constexpr CLSID kClsidHtmlDocument = {
    0x25336920, 0x03F9, 0x11CF, {0x8F, 0xD0, 0x00, 0xAA, 0x00, 0x68, 0x6F, 0x13}};
constexpr DISPID kDispidNavigate = 104;
constexpr DISPID kDispidDocument = 203;
// What the real control takes to produce about:blank's document: it arrives
// later, through the message loop, never inside Navigate.
constexpr UINT kDocumentDelayMs = 300;
constexpr UINT_PTR kDocumentTimer = 1;
constexpr wchar_t kWindowClass[] = L"RigFakeWebBrowser";

HMODULE g_hModule = nullptr;
LONG g_nObjects = 0;
int g_nStreams = 0;

std::wstring LogFolder()
{
    wchar_t folder[MAX_PATH];
    const DWORD n = ::GetEnvironmentVariableW(L"RIG_FAKE_BROWSER_LOG", folder, MAX_PATH);
    return n > 0 && n < MAX_PATH ? std::wstring(folder, n) : std::wstring();
}

void Log(const char* format, ...)
{
    const std::wstring folder = LogFolder();
    if (folder.empty())
        return;
    char line[512];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(line, sizeof line - 1, format, args);
    va_end(args);
    if (n < 0)
        return;
    std::size_t nLength = std::strlen(line);
    line[nLength++] = '\n';
    const HANDLE hFile = ::CreateFileW((folder + L"\\events.log").c_str(), FILE_APPEND_DATA, FILE_SHARE_READ,
                                       nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hFile == INVALID_HANDLE_VALUE)
        return;
    DWORD nWritten = 0;
    ::WriteFile(hFile, line, static_cast<DWORD>(nLength), &nWritten, nullptr);
    ::CloseHandle(hFile);
}

void SaveStream(int nStream, const std::vector<char>& bytes)
{
    const std::wstring folder = LogFolder();
    if (folder.empty())
        return;
    const std::wstring path = folder + L"\\stream-" + std::to_wstring(nStream) + L".bin";
    const HANDLE hFile =
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hFile == INVALID_HANDLE_VALUE)
        return;
    DWORD nWritten = 0;
    ::WriteFile(hFile, bytes.data(), static_cast<DWORD>(bytes.size()), &nWritten, nullptr);
    ::CloseHandle(hFile);
}

HRESULT STDMETHODCALLTYPE NotImplemented()
{
    return E_NOTIMPL;
}

template <class Vtbl> Vtbl NotImplementedVtbl()
{
    using Slot = HRESULT(STDMETHODCALLTYPE*)();
    static_assert(sizeof(Vtbl) % sizeof(Slot) == 0);
    Vtbl vtbl;
    const Slot slot = &NotImplemented;
    for (std::size_t nOffset = 0; nOffset < sizeof vtbl; nOffset += sizeof slot)
        std::memcpy(reinterpret_cast<char*>(&vtbl) + nOffset, &slot, sizeof slot);
    return vtbl;
}

/// A COM object with several interfaces: each is a face that points back at it.
class Object
{
public:
    Object() { ::InterlockedIncrement(&g_nObjects); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() { ::InterlockedDecrement(&g_nObjects); }
    virtual void* Find(REFIID riid) = 0;
    HRESULT QueryInterface(REFIID riid, void** ppv)
    {
        if (ppv == nullptr)
            return E_POINTER;
        *ppv = Find(riid);
        if (*ppv == nullptr)
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG AddRef() { return ++m_nRefs; }
    ULONG Release()
    {
        const ULONG n = --m_nRefs;
        if (n == 0)
            delete this;
        return n;
    }

private:
    ULONG m_nRefs = 1;
};

struct Face
{
    const void* lpVtbl;
    Object* pOwner;
};

template <class I> Object* Owner(I* pThis)
{
    return reinterpret_cast<Face*>(pThis)->pOwner;
}
template <class I> HRESULT STDMETHODCALLTYPE FaceQueryInterface(I* pThis, REFIID riid, void** ppv)
{
    return Owner(pThis)->QueryInterface(riid, ppv);
}
template <class I> ULONG STDMETHODCALLTYPE FaceAddRef(I* pThis)
{
    return Owner(pThis)->AddRef();
}
template <class I> ULONG STDMETHODCALLTYPE FaceRelease(I* pThis)
{
    return Owner(pThis)->Release();
}
template <class I, class Vtbl> Vtbl UnknownVtbl()
{
    Vtbl vtbl = NotImplementedVtbl<Vtbl>();
    vtbl.QueryInterface = &FaceQueryInterface<I>;
    vtbl.AddRef = &FaceAddRef<I>;
    vtbl.Release = &FaceRelease<I>;
    return vtbl;
}

// The body element: its text container has a scroll height that grows with
// every load, and remembers where it was scrolled to.
class Body final : public Object
{
public:
    explicit Body(LONG nScrollHeight) : m_nScrollHeight(nScrollHeight) {}
    void* Find(REFIID riid) override
    {
        if (riid == IID_IUnknown || riid == IID_IDispatch || riid == IID_IHTMLElement)
            return &m_Element;
        if (riid == IID_IHTMLTextContainer)
            return &m_Container;
        return nullptr;
    }

private:
    static Body* Self(IHTMLTextContainer* pThis) { return static_cast<Body*>(Owner(pThis)); }
    static HRESULT STDMETHODCALLTYPE GetScrollHeight(IHTMLTextContainer* pThis, LONG* p)
    {
        *p = Self(pThis)->m_nScrollHeight;
        Log("scrollHeight %ld", static_cast<long>(*p));
        return S_OK;
    }
    static HRESULT STDMETHODCALLTYPE PutScrollTop(IHTMLTextContainer*, LONG v)
    {
        Log("scrollTop %ld", static_cast<long>(v));
        return S_OK;
    }
    static const IHTMLElementVtbl* ElementVtbl()
    {
        static const IHTMLElementVtbl vtbl = UnknownVtbl<IHTMLElement, IHTMLElementVtbl>();
        return &vtbl;
    }
    static const IHTMLTextContainerVtbl* ContainerVtbl()
    {
        static const IHTMLTextContainerVtbl vtbl = []
        {
            auto v = UnknownVtbl<IHTMLTextContainer, IHTMLTextContainerVtbl>();
            v.get_scrollHeight = &GetScrollHeight;
            v.put_scrollTop = &PutScrollTop;
            return v;
        }();
        return &vtbl;
    }

    Face m_Element{ElementVtbl(), this};
    Face m_Container{ContainerVtbl(), this};
    LONG m_nScrollHeight;
};

// The HTML document: records every stream it is loaded from.
class Document final : public Object
{
public:
    void* Find(REFIID riid) override
    {
        if (riid == IID_IUnknown || riid == IID_IDispatch || riid == IID_IHTMLDocument ||
            riid == IID_IHTMLDocument2)
            return &m_Html;
        if (riid == IID_IPersistStreamInit)
            return &m_Persist;
        return nullptr;
    }

private:
    static Document* Self(void* pThis)
    {
        return static_cast<Document*>(reinterpret_cast<Face*>(pThis)->pOwner);
    }
    static HRESULT STDMETHODCALLTYPE InitNew(IPersistStreamInit*)
    {
        Log("initnew");
        return S_OK;
    }
    static HRESULT STDMETHODCALLTYPE Load(IPersistStreamInit* pThis, IStream* pStream)
    {
        std::vector<char> bytes;
        char buffer[4096];
        // Bounded: a report is far below this.
        while (bytes.size() < (64u << 20))
        {
            ULONG nRead = 0;
            const HRESULT hr = IStream_Read(pStream, buffer, sizeof buffer, &nRead);
            bytes.insert(bytes.end(), buffer, buffer + nRead);
            if (FAILED(hr) || nRead == 0)
                break;
        }
        const int nStream = ++g_nStreams;
        SaveStream(nStream, bytes);
        Log("load %d %zu", nStream, bytes.size());
        Self(pThis)->m_nScrollHeight = 16 * static_cast<LONG>(bytes.size() / 64) + 40;
        return S_OK;
    }
    static HRESULT STDMETHODCALLTYPE GetBody(IHTMLDocument2* pThis, IHTMLElement** p)
    {
        auto* pBody = new Body(Self(pThis)->m_nScrollHeight);
        *p = reinterpret_cast<IHTMLElement*>(pBody->Find(IID_IHTMLElement));
        return S_OK;
    }
    static const IHTMLDocument2Vtbl* HtmlVtbl()
    {
        static const IHTMLDocument2Vtbl vtbl = []
        {
            auto v = UnknownVtbl<IHTMLDocument2, IHTMLDocument2Vtbl>();
            v.get_body = &GetBody;
            return v;
        }();
        return &vtbl;
    }
    static const IPersistStreamInitVtbl* PersistVtbl()
    {
        static const IPersistStreamInitVtbl vtbl = []
        {
            auto v = UnknownVtbl<IPersistStreamInit, IPersistStreamInitVtbl>();
            v.InitNew = &InitNew;
            v.Load = &Load;
            return v;
        }();
        return &vtbl;
    }

    Face m_Html{HtmlVtbl(), this};
    Face m_Persist{PersistVtbl(), this};
    LONG m_nScrollHeight = 40;
};

// The control: in-place activation into a window of its own inside the
// container's, Navigate and Document through IDispatch, and the keystrokes
// the container hands to the active object.
class Browser final : public Object
{
public:
    ~Browser() override
    {
        if (m_pDocument != nullptr)
            m_pDocument->Release();
        if (m_pSite != nullptr)
            IOleClientSite_Release(m_pSite);
        if (m_hWnd != nullptr)
            ::DestroyWindow(m_hWnd);
    }

    void* Find(REFIID riid) override
    {
        if (riid == IID_IUnknown || riid == IID_IOleObject)
            return &m_OleObject;
        if (riid == IID_IOleWindow || riid == IID_IOleInPlaceObject)
            return &m_InPlace;
        if (riid == IID_IOleInPlaceActiveObject)
            return &m_Active;
        if (riid == IID_IDispatch)
            return &m_Dispatch;
        if (riid == IID_IOleCommandTarget)
            return &m_Commands;
        // Not IWebBrowser2: the view is to use the automation interface.
        return nullptr;
    }

private:
    static Browser* Self(void* pThis)
    {
        return static_cast<Browser*>(reinterpret_cast<Face*>(pThis)->pOwner);
    }

    static LRESULT CALLBACK WindowProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam)
    {
        auto* pBrowser = reinterpret_cast<Browser*>(::GetWindowLongPtrW(hWnd, GWLP_USERDATA));
        switch (message)
        {
        case WM_TIMER:
            if (wParam == kDocumentTimer && pBrowser != nullptr)
            {
                ::KillTimer(hWnd, kDocumentTimer);
                if (pBrowser->m_pDocument == nullptr)
                    pBrowser->m_pDocument = new Document;
                Log("document ready");
            }
            return 0;
        case WM_LBUTTONDOWN:
            ::SetFocus(hWnd);
            return 0;
        case WM_PAINT:
        {
            PAINTSTRUCT ps;
            const HDC hdc = ::BeginPaint(hWnd, &ps);
            RECT client;
            ::GetClientRect(hWnd, &client);
            ::FillRect(hdc, &client, static_cast<HBRUSH>(::GetStockObject(WHITE_BRUSH)));
            wchar_t text[64];
            std::swprintf(text, 64, L"fake WebBrowser: %d streams", g_nStreams);
            ::DrawTextW(hdc, text, -1, &client, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
            ::EndPaint(hWnd, &ps);
            return 0;
        }
        default:
            return ::DefWindowProcW(hWnd, message, wParam, lParam);
        }
    }

    // IOleObject.
    static HRESULT STDMETHODCALLTYPE SetClientSite(IOleObject* pThis, IOleClientSite* pSite)
    {
        Browser* self = Self(pThis);
        if (pSite != nullptr)
            IOleClientSite_AddRef(pSite);
        if (self->m_pSite != nullptr)
            IOleClientSite_Release(self->m_pSite);
        self->m_pSite = pSite;
        return S_OK;
    }
    static HRESULT STDMETHODCALLTYPE GetClientSite(IOleObject* pThis, IOleClientSite** ppSite)
    {
        *ppSite = Self(pThis)->m_pSite;
        if (*ppSite != nullptr)
            IOleClientSite_AddRef(*ppSite);
        return S_OK;
    }
    static HRESULT STDMETHODCALLTYPE DoVerb(IOleObject* pThis, LONG nVerb, LPMSG, IOleClientSite* pSite, LONG,
                                            HWND hParent, LPCRECT pRect)
    {
        Log("doverb %ld", static_cast<long>(nVerb));
        if (nVerb != OLEIVERB_INPLACEACTIVATE && nVerb != OLEIVERB_UIACTIVATE && nVerb != OLEIVERB_SHOW)
            return OLEOBJ_S_INVALIDVERB;
        Browser* self = Self(pThis);
        if (self->m_hWnd != nullptr)
            return S_OK;
        IOleInPlaceSite* pInPlaceSite = nullptr;
        if (pSite == nullptr || FAILED(IOleClientSite_QueryInterface(
                                    pSite, IID_IOleInPlaceSite, reinterpret_cast<void**>(&pInPlaceSite))))
            return E_INVALIDARG;
        IOleInPlaceSite_OnInPlaceActivate(pInPlaceSite);
        IOleInPlaceFrame* pFrame = nullptr;
        IOleInPlaceUIWindow* pDoc = nullptr;
        RECT pos{};
        RECT clip{};
        OLEINPLACEFRAMEINFO frameInfo{sizeof frameInfo, FALSE, nullptr, nullptr, 0};
        if (SUCCEEDED(
                IOleInPlaceSite_GetWindowContext(pInPlaceSite, &pFrame, &pDoc, &pos, &clip, &frameInfo)))
        {
            if (pFrame != nullptr)
            {
                IOleInPlaceFrame_SetActiveObject(
                    pFrame, reinterpret_cast<IOleInPlaceActiveObject*>(&self->m_Active), nullptr);
                IOleInPlaceFrame_Release(pFrame);
            }
            if (pDoc != nullptr)
                IOleInPlaceUIWindow_Release(pDoc);
        }
        IOleInPlaceSite_Release(pInPlaceSite);
        const RECT rect = pRect != nullptr ? *pRect : pos;
        WNDCLASSW wc{};
        wc.lpfnWndProc = &WindowProc;
        wc.hInstance = g_hModule;
        wc.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
        wc.lpszClassName = kWindowClass;
        ::RegisterClassW(&wc); // fails harmlessly once registered
        self->m_hWnd = ::CreateWindowExW(0, kWindowClass, L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP, rect.left,
                                         rect.top, rect.right - rect.left, rect.bottom - rect.top, hParent,
                                         nullptr, g_hModule, nullptr);
        ::SetWindowLongPtrW(self->m_hWnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
        Log("window %ld %ld", static_cast<long>(rect.right - rect.left),
            static_cast<long>(rect.bottom - rect.top));
        return S_OK;
    }
    static HRESULT STDMETHODCALLTYPE Close(IOleObject* pThis, DWORD)
    {
        Browser* self = Self(pThis);
        if (self->m_hWnd != nullptr)
        {
            ::DestroyWindow(self->m_hWnd);
            self->m_hWnd = nullptr;
        }
        Log("close");
        return S_OK;
    }

    // IOleWindow, IOleInPlaceObject, IOleInPlaceActiveObject.
    template <class I> static HRESULT STDMETHODCALLTYPE GetWindow(I* pThis, HWND* phWnd)
    {
        *phWnd = Self(pThis)->m_hWnd;
        return *phWnd != nullptr ? S_OK : E_FAIL;
    }
    static HRESULT STDMETHODCALLTYPE SetObjectRects(IOleInPlaceObject* pThis, LPCRECT pPos, LPCRECT)
    {
        Browser* self = Self(pThis);
        Log("rects %ld %ld", static_cast<long>(pPos->right - pPos->left),
            static_cast<long>(pPos->bottom - pPos->top));
        if (self->m_hWnd != nullptr)
            ::MoveWindow(self->m_hWnd, pPos->left, pPos->top, pPos->right - pPos->left,
                         pPos->bottom - pPos->top, TRUE);
        return S_OK;
    }
    static HRESULT STDMETHODCALLTYPE InPlaceDeactivate(IOleInPlaceObject*) { return S_OK; }
    static HRESULT STDMETHODCALLTYPE TranslateAccelerator(IOleInPlaceActiveObject* pThis, LPMSG pMsg)
    {
        // The real control acts on its own keys (copy, scrolling) here; this
        // one only tells whether the container passed them on.
        const bool bMine = pMsg->hwnd == Self(pThis)->m_hWnd;
        Log("accelerator %04x %02x %s", pMsg->message, static_cast<unsigned>(pMsg->wParam),
            bMine ? "mine" : "other");
        return S_FALSE;
    }

    // IOleCommandTarget: the optical zoom, which the real control takes
    // once it shows a document.
    static HRESULT STDMETHODCALLTYPE Exec(IOleCommandTarget* pThis, const GUID* pGroup, DWORD nCommand, DWORD,
                                          VARIANT* pIn, VARIANT*)
    {
        if (pGroup != nullptr || nCommand != OLECMDID_OPTICAL_ZOOM || pIn == nullptr || pIn->vt != VT_I4)
            return OLECMDERR_E_NOTSUPPORTED;
        if (Self(pThis)->m_pDocument == nullptr)
            return OLECMDERR_E_DISABLED;
        Log("zoom %ld", static_cast<long>(pIn->lVal));
        return S_OK;
    }

    // IDispatch: Navigate (104) and Document (203), as CWnd::InvokeHelper
    // makes them.
    static HRESULT STDMETHODCALLTYPE Invoke(IDispatch* pThis, DISPID id, REFIID, LCID, WORD wFlags,
                                            DISPPARAMS* pParams, VARIANT* pResult, EXCEPINFO*, UINT*)
    {
        Browser* self = Self(pThis);
        if (id == kDispidNavigate && (wFlags & DISPATCH_METHOD) != 0)
        {
            if (pParams == nullptr || pParams->cArgs != 5 || pParams->rgvarg[4].vt != VT_BSTR)
            {
                Log("navigate bad-arguments");
                return DISP_E_BADPARAMCOUNT;
            }
            char url[256];
            ::WideCharToMultiByte(CP_UTF8, 0, pParams->rgvarg[4].bstrVal, -1, url, sizeof url, nullptr,
                                  nullptr);
            Log("navigate %s", url);
            // about:blank's document replaces the current one, later.
            if (self->m_pDocument != nullptr)
            {
                self->m_pDocument->Release();
                self->m_pDocument = nullptr;
            }
            if (self->m_hWnd != nullptr)
                ::SetTimer(self->m_hWnd, kDocumentTimer, kDocumentDelayMs, nullptr);
            return S_OK;
        }
        if (id == kDispidDocument && (wFlags & DISPATCH_PROPERTYGET) != 0 && pResult != nullptr)
        {
            ::VariantInit(pResult);
            pResult->vt = VT_DISPATCH;
            pResult->pdispVal = nullptr;
            if (self->m_pDocument != nullptr)
                self->m_pDocument->QueryInterface(IID_IDispatch,
                                                  reinterpret_cast<void**>(&pResult->pdispVal));
            else
                Log("document none");
            return S_OK;
        }
        Log("invoke %ld unknown", static_cast<long>(id));
        return DISP_E_MEMBERNOTFOUND;
    }

    static const IOleObjectVtbl* OleObjectVtbl()
    {
        static const IOleObjectVtbl vtbl = []
        {
            auto v = UnknownVtbl<IOleObject, IOleObjectVtbl>();
            v.SetClientSite = &SetClientSite;
            v.GetClientSite = &GetClientSite;
            v.DoVerb = &DoVerb;
            v.Close = &Close;
            return v;
        }();
        return &vtbl;
    }
    static const IOleInPlaceObjectVtbl* InPlaceVtbl()
    {
        static const IOleInPlaceObjectVtbl vtbl = []
        {
            auto v = UnknownVtbl<IOleInPlaceObject, IOleInPlaceObjectVtbl>();
            v.GetWindow = &GetWindow<IOleInPlaceObject>;
            v.SetObjectRects = &SetObjectRects;
            v.InPlaceDeactivate = &InPlaceDeactivate;
            return v;
        }();
        return &vtbl;
    }
    static const IOleInPlaceActiveObjectVtbl* ActiveVtbl()
    {
        static const IOleInPlaceActiveObjectVtbl vtbl = []
        {
            auto v = UnknownVtbl<IOleInPlaceActiveObject, IOleInPlaceActiveObjectVtbl>();
            v.GetWindow = &GetWindow<IOleInPlaceActiveObject>;
            v.TranslateAccelerator = &TranslateAccelerator;
            return v;
        }();
        return &vtbl;
    }
    static const IOleCommandTargetVtbl* CommandsVtbl()
    {
        static const IOleCommandTargetVtbl vtbl = []
        {
            auto v = UnknownVtbl<IOleCommandTarget, IOleCommandTargetVtbl>();
            v.Exec = &Exec;
            return v;
        }();
        return &vtbl;
    }
    static const IDispatchVtbl* DispatchVtbl()
    {
        static const IDispatchVtbl vtbl = []
        {
            auto v = UnknownVtbl<IDispatch, IDispatchVtbl>();
            v.Invoke = &Invoke;
            return v;
        }();
        return &vtbl;
    }

    Face m_OleObject{OleObjectVtbl(), this};
    Face m_InPlace{InPlaceVtbl(), this};
    Face m_Active{ActiveVtbl(), this};
    Face m_Dispatch{DispatchVtbl(), this};
    Face m_Commands{CommandsVtbl(), this};
    IOleClientSite* m_pSite = nullptr;
    HWND m_hWnd = nullptr;
    Document* m_pDocument = nullptr;
};

// One class factory per class id; they live as long as the module.
template <class T> struct Factory
{
    static HRESULT STDMETHODCALLTYPE QueryInterface(IClassFactory* pThis, REFIID riid, void** ppv)
    {
        if (riid != IID_IUnknown && riid != IID_IClassFactory)
        {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        *ppv = pThis;
        return S_OK;
    }
    static ULONG STDMETHODCALLTYPE AddRef(IClassFactory*) { return 2; }
    static ULONG STDMETHODCALLTYPE Release(IClassFactory*) { return 1; }
    static HRESULT STDMETHODCALLTYPE CreateInstance(IClassFactory*, IUnknown* pOuter, REFIID riid, void** ppv)
    {
        *ppv = nullptr;
        if (pOuter != nullptr)
            return CLASS_E_NOAGGREGATION;
        T* pObject = new T;
        Log("create %s", std::is_same_v<T, Browser> ? "WebBrowser" : "HTMLDocument");
        const HRESULT hr = pObject->QueryInterface(riid, ppv);
        pObject->Release();
        return hr;
    }
    static HRESULT STDMETHODCALLTYPE LockServer(IClassFactory*, BOOL) { return S_OK; }
    static IClassFactory* Get()
    {
        static IClassFactoryVtbl vtbl{&QueryInterface, &AddRef, &Release, &CreateInstance, &LockServer};
        static IClassFactory factory{&vtbl};
        return &factory;
    }
};
} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD nReason, LPVOID)
{
    if (nReason == DLL_PROCESS_ATTACH)
        g_hModule = hInstance;
    return TRUE;
}

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv)
{
    if (rclsid == CLSID_WebBrowser)
        return Factory<Browser>::QueryInterface(Factory<Browser>::Get(), riid, ppv);
    if (rclsid == kClsidHtmlDocument)
        return Factory<Document>::QueryInterface(Factory<Document>::Get(), riid, ppv);
    *ppv = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow()
{
    return g_nObjects == 0 ? S_OK : S_FALSE;
}

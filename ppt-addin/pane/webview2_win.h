// The browser component's interfaces as the pane uses them, declared from
// their public documentation: MinGW ships no header for them. Each
// interface declares every slot up to the last one the pane calls, in the
// documented order; parameters the pane never passes are void pointers.
// The loader's entry point is looked up at run time.
#pragma once

#include <windows.h>

#include <unknwn.h>

#include <cstdint>

namespace qb::wv2 {

struct EventRegistrationToken {
    std::int64_t value;
};

struct ICoreWebView2;
struct ICoreWebView2Controller;
struct ICoreWebView2Environment;

// {4E8A3389-C9D8-4BD2-B6B5-124FEE6CC14D}
inline constexpr IID IID_EnvironmentCompletedHandler = {
    0x4E8A3389, 0xC9D8, 0x4BD2, {0xB6, 0xB5, 0x12, 0x4F, 0xEE, 0x6C, 0xC1, 0x4D}};
// {6C4819F3-C9B7-4260-8127-C9F5BDE7F68C}
inline constexpr IID IID_ControllerCompletedHandler = {
    0x6C4819F3, 0xC9B7, 0x4260, {0x81, 0x27, 0xC9, 0xF5, 0xBD, 0xE7, 0xF6, 0x8C}};
// {B96D755E-0319-4E92-A296-23436F46A1FC}
inline constexpr IID IID_ICoreWebView2Environment = {
    0xB96D755E, 0x0319, 0x4E92, {0xA2, 0x96, 0x23, 0x43, 0x6F, 0x46, 0xA1, 0xFC}};
// {4D00C0D1-9434-4EB6-8078-8697A560334F}
inline constexpr IID IID_ICoreWebView2Controller = {
    0x4D00C0D1, 0x9434, 0x4EB6, {0x80, 0x78, 0x86, 0x97, 0xA5, 0x60, 0x33, 0x4F}};
// {76ECEACB-0462-4D94-AC83-423A6793775E}
inline constexpr IID IID_ICoreWebView2 = {
    0x76ECEACB, 0x0462, 0x4D94, {0xAC, 0x83, 0x42, 0x3A, 0x67, 0x93, 0x77, 0x5E}};
// {E562E4F0-D7FA-43AC-8D71-C05150499F00}
inline constexpr IID IID_ICoreWebView2Settings = {
    0xE562E4F0, 0xD7FA, 0x43AC, {0x8D, 0x71, 0xC0, 0x51, 0x50, 0x49, 0x9F, 0x00}};
// {57213F19-00E6-49FA-8E07-898EA01ECBD2}
inline constexpr IID IID_WebMessageReceivedEventHandler = {
    0x57213F19, 0x00E6, 0x49FA, {0x8E, 0x07, 0x89, 0x8E, 0xA0, 0x1E, 0xCB, 0xD2}};
// {0F99A40C-E962-4207-9E92-E3D542EFF849}
inline constexpr IID IID_WebMessageReceivedEventArgs = {
    0x0F99A40C, 0xE962, 0x4207, {0x9E, 0x92, 0xE3, 0xD5, 0x42, 0xEF, 0xF8, 0x49}};
// {9ADBE429-F36D-432B-9DDC-F8881FBD76E3}
inline constexpr IID IID_NavigationStartingEventHandler = {
    0x9ADBE429, 0xF36D, 0x432B, {0x9D, 0xDC, 0xF8, 0x88, 0x1F, 0xBD, 0x76, 0xE3}};
// {5B495469-E119-438A-9B18-7604F25F2E49}
inline constexpr IID IID_NavigationStartingEventArgs = {
    0x5B495469, 0xE119, 0x438A, {0x9B, 0x18, 0x76, 0x04, 0xF2, 0x5F, 0x2E, 0x49}};
// {D33A35BF-1C49-4F98-93AB-006E0533FE1C}
inline constexpr IID IID_NavigationCompletedEventHandler = {
    0xD33A35BF, 0x1C49, 0x4F98, {0x93, 0xAB, 0x00, 0x6E, 0x05, 0x33, 0xFE, 0x1C}};
// {30D68B7D-20D9-4752-A9CA-EC8448FBB5C1}
inline constexpr IID IID_NavigationCompletedEventArgs = {
    0x30D68B7D, 0x20D9, 0x4752, {0xA9, 0xCA, 0xEC, 0x84, 0x48, 0xFB, 0xB5, 0xC1}};

struct ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT result,
                                             ICoreWebView2Environment* environment) = 0;
};

struct ICoreWebView2CreateCoreWebView2ControllerCompletedHandler : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT result,
                                             ICoreWebView2Controller* controller) = 0;
};

struct ICoreWebView2Environment : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2Controller(
        HWND parentWindow, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) = 0;
};

struct ICoreWebView2Settings : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_IsScriptEnabled(BOOL* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsScriptEnabled(BOOL value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsWebMessageEnabled(BOOL* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsWebMessageEnabled(BOOL value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AreDefaultScriptDialogsEnabled(BOOL* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_AreDefaultScriptDialogsEnabled(BOOL value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsStatusBarEnabled(BOOL* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsStatusBarEnabled(BOOL value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AreDevToolsEnabled(BOOL* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_AreDevToolsEnabled(BOOL value) = 0;
};

struct ICoreWebView2WebMessageReceivedEventArgs : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* source) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_WebMessageAsJson(LPWSTR* json) = 0;
};

struct ICoreWebView2WebMessageReceivedEventHandler : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                             ICoreWebView2WebMessageReceivedEventArgs* args) = 0;
};

// The pane reads nothing of a starting navigation's arguments.
struct ICoreWebView2NavigationStartingEventArgs : public IUnknown {};

struct ICoreWebView2NavigationStartingEventHandler : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                             ICoreWebView2NavigationStartingEventArgs* args) = 0;
};

struct ICoreWebView2NavigationCompletedEventArgs : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_IsSuccess(BOOL* success) = 0;
};

struct ICoreWebView2NavigationCompletedEventHandler : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                             ICoreWebView2NavigationCompletedEventArgs* args) = 0;
};

struct ICoreWebView2 : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings** settings) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* uri) = 0;
    virtual HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR uri) = 0;
    virtual HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR html) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_NavigationStarting(
        ICoreWebView2NavigationStartingEventHandler* handler, EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_NavigationStarting(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ContentLoading(void* handler,
                                                         EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ContentLoading(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_SourceChanged(void* handler,
                                                        EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_SourceChanged(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_HistoryChanged(void* handler,
                                                         EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_HistoryChanged(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_NavigationCompleted(
        ICoreWebView2NavigationCompletedEventHandler* handler, EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    add_FrameNavigationStarting(void* handler, EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    remove_FrameNavigationStarting(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    add_FrameNavigationCompleted(void* handler, EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    remove_FrameNavigationCompleted(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ScriptDialogOpening(void* handler,
                                                              EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ScriptDialogOpening(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_PermissionRequested(void* handler,
                                                              EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_PermissionRequested(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ProcessFailed(void* handler,
                                                        EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddScriptToExecuteOnDocumentCreated(LPCWSTR script,
                                                                          void* handler) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveScriptToExecuteOnDocumentCreated(LPCWSTR id) = 0;
    // The pane passes no completion handler.
    virtual HRESULT STDMETHODCALLTYPE ExecuteScript(LPCWSTR script, void* handler) = 0;
    virtual HRESULT STDMETHODCALLTYPE CapturePreview(int format, void* stream, void* handler) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reload() = 0;
    virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR json) = 0;
    virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsString(LPCWSTR text) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_WebMessageReceived(
        ICoreWebView2WebMessageReceivedEventHandler* handler, EventRegistrationToken* token) = 0;
};

struct ICoreWebView2Controller : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL* visible) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL visible) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Bounds(RECT* bounds) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Bounds(RECT bounds) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ZoomFactor(double* factor) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ZoomFactor(double factor) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ZoomFactorChanged(void* handler,
                                                            EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ZoomFactorChanged(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetBoundsAndZoomFactor(RECT bounds, double factor) = 0;
    virtual HRESULT STDMETHODCALLTYPE MoveFocus(int reason) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_MoveFocusRequested(void* handler,
                                                             EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_MoveFocusRequested(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_GotFocus(void* handler,
                                                   EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_GotFocus(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_LostFocus(void* handler,
                                                    EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_LostFocus(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_AcceleratorKeyPressed(void* handler,
                                                                EventRegistrationToken* token) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    remove_AcceleratorKeyPressed(EventRegistrationToken token) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND* parent) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ParentWindow(HWND parent) = 0;
    virtual HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() = 0;
    virtual HRESULT STDMETHODCALLTYPE Close() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2** view) = 0;
};

// The loader's one entry point, by name.
inline constexpr char kCreateEnvironmentExport[] = "CreateCoreWebView2EnvironmentWithOptions";
inline constexpr wchar_t kLoaderFileName[] = L"WebView2Loader.dll";
using CreateEnvironmentWithOptionsFn = HRESULT(STDAPICALLTYPE*)(
    PCWSTR browserExecutableFolder, PCWSTR userDataFolder, IUnknown* environmentOptions,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

}  // namespace qb::wv2

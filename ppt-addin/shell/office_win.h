// The host interfaces the add-in implements or calls by their vtables,
// declared from their public documentation (MinGW ships none of them), and
// the add-in's own interfaces of its type library. Members the add-in only
// reaches by name (the task pane, the ribbon control, the ribbon UI) are
// used through IDispatch and not declared here.
#pragma once

#include <windows.h>

#include <oaidl.h>

namespace qb::office {

// {B65AD801-ABAF-11D0-BB8B-00A0C90F2744}
inline constexpr IID IID_IDTExtensibility2 = {
    0xB65AD801, 0xABAF, 0x11D0, {0xBB, 0x8B, 0x00, 0xA0, 0xC9, 0x0F, 0x27, 0x44}};
// The Office family's interfaces share the tail C000-000000000046.
inline constexpr IID OfficeIid(unsigned long data1) {
    return {data1, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
}
inline constexpr IID IID_IRibbonExtensibility = OfficeIid(0x000C0396);
inline constexpr IID IID_IRibbonControl = OfficeIid(0x000C0395);
inline constexpr IID IID_IRibbonUI = OfficeIid(0x000C03A7);
inline constexpr IID IID_CustomTaskPane = OfficeIid(0x000C033B);
inline constexpr IID IID_ICTPFactory = OfficeIid(0x000C033D);
inline constexpr IID IID_ICustomTaskPaneConsumer = OfficeIid(0x000C033E);

// The add-in's own identifiers.
// {5B9C1E43-AF66-4F7D-BC38-94E7FA0512C3}
inline constexpr CLSID CLSID_Connect = {
    0x5B9C1E43, 0xAF66, 0x4F7D, {0xBC, 0x38, 0x94, 0xE7, 0xFA, 0x05, 0x12, 0xC3}};
// {B0C1D2E3-4F5A-6B7C-8D9E-0F1A2B3C4D5E}
inline constexpr CLSID CLSID_Pane = {
    0xB0C1D2E3, 0x4F5A, 0x6B7C, {0x8D, 0x9E, 0x0F, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}};
// {3F7A9C21-8E44-4D5B-9A16-72C5D8E3F0A1}
inline constexpr GUID LIBID_PptAddinLib = {
    0x3F7A9C21, 0x8E44, 0x4D5B, {0x9A, 0x16, 0x72, 0xC5, 0xD8, 0xE3, 0xF0, 0xA1}};
// {4A8B0D32-9F55-4E6C-AB27-83D6E9F401B2}
inline constexpr IID IID_IRibbonCallback = {
    0x4A8B0D32, 0x9F55, 0x4E6C, {0xAB, 0x27, 0x83, 0xD6, 0xE9, 0xF4, 0x01, 0xB2}};
// {C1D2E3F4-5A6B-7C8D-9E0F-1A2B3C4D5E6F}
inline constexpr IID IID_IQuillbrookPptPane = {
    0xC1D2E3F4, 0x5A6B, 0x7C8D, {0x9E, 0x0F, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0x6F}};

enum ext_ConnectMode : int {
    ext_cm_AfterStartup = 0,
    ext_cm_Startup = 1,
    ext_cm_External = 2,
    ext_cm_CommandLine = 3,
};
enum ext_DisconnectMode : int {
    ext_dm_HostShutdown = 0,
    ext_dm_UserClosed = 1,
};

struct _IDTExtensibility2 : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE OnConnection(IDispatch* application,
                                                   ext_ConnectMode connectMode,
                                                   IDispatch* addInInst, SAFEARRAY** custom) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDisconnection(ext_DisconnectMode removeMode,
                                                      SAFEARRAY** custom) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnAddInsUpdate(SAFEARRAY** custom) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnStartupComplete(SAFEARRAY** custom) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnBeginShutdown(SAFEARRAY** custom) = 0;
};

struct IRibbonExtensibility : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE GetCustomUI(BSTR ribbonId, BSTR* ribbonXml) = 0;
};

// The task pane as the factory returns it; its members are reached by name.
using _CustomTaskPane = IDispatch;

struct ICTPFactory : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE CreateCTP(BSTR ctpAxId, BSTR ctpTitle,
                                                VARIANT ctpParentWindow,
                                                _CustomTaskPane** ctpInst) = 0;
};

struct ICustomTaskPaneConsumer : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE CTPFactoryAvailable(ICTPFactory* ctpFactoryInst) = 0;
};

// The add-in's callback interface, as its type library declares it.
struct IRibbonCallback : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE TranslateFullDocClicked(IDispatch* control) = 0;
    virtual HRESULT STDMETHODCALLTYPE TranslateCurrentSlideClicked(IDispatch* control) = 0;
    virtual HRESULT STDMETHODCALLTYPE ShowPaneClicked(IDispatch* control) = 0;
    virtual HRESULT STDMETHODCALLTYPE GlossaryClicked(IDispatch* control) = 0;
    virtual HRESULT STDMETHODCALLTYPE InstructionClicked(IDispatch* control) = 0;
    virtual HRESULT STDMETHODCALLTYPE AccountClicked(IDispatch* control) = 0;
    virtual HRESULT STDMETHODCALLTYPE SupportClicked(IDispatch* control) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetImage(IDispatch* control, VARIANT* image) = 0;
    virtual HRESULT STDMETHODCALLTYPE TranslateSelectionClicked(IDispatch* control) = 0;
};

// The pane's dual interface; it has no members of its own.
struct IQuillbrookPptPane : public IDispatch {};

}  // namespace qb::office

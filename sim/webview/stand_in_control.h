// The test controls of the browser component's stand-in (WebView2Loader.dll
// built from sim/webview): what a test sets before the pane brings its view
// up, what it makes the page do, and what the stand-in saw. They are plain
// exports beside the loader's entry point; a driver that finds the module
// already loaded by the add-in reaches them with GetProcAddress, by the
// names and function types below.
#pragma once

#include <windows.h>

extern "C" {

// The step of the bring-up that fails on purpose, for QbStandInSetFailure.
enum QbStandInFailureStep {
    QbStandInFailNone = 0,
    QbStandInFailCreate = 1,       // the create call itself returns hr, no callback
    QbStandInFailEnvironment = 2,  // the environment callback gets hr and no environment
    QbStandInFailController = 3,   // the controller callback gets hr and no controller
    QbStandInFailCoreView = 4,     // the controller's get_CoreWebView2 gives S_OK and null
    QbStandInFailNavigation = 5,   // navigations complete with IsSuccess false
};

// S_OK, or E_INVALIDARG for a step outside 0..5 (nothing changes then).
// Applies to calls made after it; `hr` matters for steps 1 to 3.
HRESULT STDAPICALLTYPE QbStandInSetFailure(int step, HRESULT hr);

// Where the page's service calls go: plain HTTP to host:port. A null or
// empty host goes back to the build's own service. E_INVALIDARG for a port
// above 65535.
HRESULT STDAPICALLTYPE QbStandInSetService(PCWSTR host, unsigned port);

// The page posts `json` as window.chrome.webview.postMessage of that object
// would: the pane's web message handlers get it on the host's thread, after
// this call has returned. The page of the view brought up last, and still
// open, sends it. A `setAccessToken` message leaves the pages holding the
// token (they share it, as pages of one profile share their storage), and
// `clearAccessToken` makes them forget it. S_OK once queued; E_POINTER for
// null; HRESULT_FROM_WIN32(ERROR_NOT_FOUND) when no view is open.
HRESULT STDAPICALLTYPE QbStandInSend(PCWSTR json);

// What the stand-in saw, as one JSON object, written to `buffer` with its
// terminating NUL when `size` (in characters) suffices, else an empty
// string when `size` > 0. Returns the characters needed, the terminating
// NUL included (0 when the report couldn't be made). Keys, in order:
//   userDataFolder       string, as the last create call gave it
//   failureStep          number in force
//   environments         environments handed out
//   controllers          controllers handed out
//   controllersClosed    controllers the caller closed
//   viewsAlive           views not yet released (across resets)
//   objectsAlive         stand-in objects not yet released (across resets)
//   handlersHeld         references held on the caller's handlers now
//   visible              the last put_IsVisible, false before any
//   lastBounds           {left,top,right,bottom} of the last put_Bounds, or null
//   devTools, statusBar  the last value put through the settings, or null
//   navigations          [url] in the order navigated
//   navigationsCompleted, navigationsFailed   completions delivered
//   events               [{name,json}]: window functions called, with their
//                        argument text
//   eventCounts          {name: calls}
//   runsEnded            calls of onComplete, onError and onCancelled
//   localAnswers         [text] arguments of the local query answers
//   previews             [text] arguments of the selection previews
//   otherScripts         [script] anything else run
//   messages             [json] every web message the pane posted
//   webMessagesDelivered messages the pane's handlers received
//   serviceCalls         requests the page took to the service
//   servicePending       of those, answers not yet handed to the pane
//                        (across resets)
//   serviceAnswers       [json] answers handed to the pane
//   token                the token the page holds
int STDAPICALLTYPE QbStandInReport(PWSTR buffer, int size);

// Forgets everything seen so far and goes back to failure step 0 and the
// build's own service. Objects still alive stay alive and go on counting.
void STDAPICALLTYPE QbStandInReset(void);

}  // extern "C"

namespace qb::sim::webview {

inline constexpr char kSetFailureExport[] = "QbStandInSetFailure";
inline constexpr char kSetServiceExport[] = "QbStandInSetService";
inline constexpr char kSendExport[] = "QbStandInSend";
inline constexpr char kReportExport[] = "QbStandInReport";
inline constexpr char kResetExport[] = "QbStandInReset";

using SetFailureFn = HRESULT(STDAPICALLTYPE*)(int step, HRESULT hr);
using SetServiceFn = HRESULT(STDAPICALLTYPE*)(PCWSTR host, unsigned port);
using SendFn = HRESULT(STDAPICALLTYPE*)(PCWSTR json);
using ReportFn = int(STDAPICALLTYPE*)(PWSTR buffer, int size);
using ResetFn = void(STDAPICALLTYPE*)();

}  // namespace qb::sim::webview

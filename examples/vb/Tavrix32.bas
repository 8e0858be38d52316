Attribute VB_Name = "Tavrix32"
' Tavrix32.dll for Visual Basic 5 and 6 (and, with PtrSafe in front of Function, for 32-bit VBA 7).
'
' Three things to know:
'
' - Functions that fill a text need one that is long enough: String$(n, vbNullChar). What they wrote
'   ends at the first vbNullChar; FromBuffer cuts it there.
' - Positions count from 1, as InStr does. XStrSpn and XStrCSpn count from where they start, also
'   from 1: add start - 1 for a position in the whole text.
' - An empty text is not a missing one. Where a function takes "nothing", pass vbNullString.
Option Explicit

Public Const FL_RECURSE As Long = &H80000000    ' into folders below; + depth (1 to 32)
Public Const FL_DIRS As Long = &H20000000       ' folders, too
Public Const FL_NO_FILES As Long = &H10000000   ' no files
Public Const FL_AS_FOUND As Long = &H8000000    ' not the full path
Public Const FL_RESTART As Long = &H2000000     ' begin anew
Public Const FL_FIRST As Long = &H1000000       ' one name only
Public Const FL_QUOTE As Long = &H800000        ' quotes around names with blanks

Public Type OPENFILENAME
    lStructSize As Long         ' set by XDlgFileOpen
    hwndOwner As Long
    hInstance As Long
    lpstrFilter As String       ' "Texts" & vbNullChar & "*.txt" & vbNullChar & vbNullChar
    lpstrCustomFilter As String
    nMaxCustFilter As Long
    nFilterIndex As Long
    lpstrFile As String         ' String$(260, vbNullChar)
    nMaxFile As Long            ' Len(lpstrFile)
    lpstrFileTitle As String
    nMaxFileTitle As Long
    lpstrInitialDir As String
    lpstrTitle As String
    flags As Long
    nFileOffset As Integer
    nFileExtension As Integer
    lpstrDefExt As String
    lCustData As Long
    lpfnHook As Long
    lpTemplateName As String
End Type

Public Declare Function XDlgFileOpen Lib "Tavrix32.dll" Alias "_XDlgFileOpen@4" _
    (ByRef ofn As OPENFILENAME) As Long
Public Declare Function XErrorInfo Lib "Tavrix32.dll" Alias "_XErrorInfo@4" _
    (ByVal buffer As String) As Long
Public Declare Function XFileList Lib "Tavrix32.dll" Alias "_XFileList@16" _
    (ByVal buffer As String, ByVal roots As String, ByVal patterns As String, _
     ByVal flags As Long) As Long
Public Declare Function XProcStart Lib "Tavrix32.dll" Alias "_XProcStart@4" _
    (ByVal commandLine As String) As Long
Public Declare Function XStrCSpn Lib "Tavrix32.dll" Alias "_XStrCSpn@12" _
    (ByVal text As String, ByVal charSet As String, ByVal start As Long) As Long
Public Declare Function XStrCmp Lib "Tavrix32.dll" Alias "_XStrCmp@12" _
    (ByVal a As String, ByVal b As String, ByVal count As Long) As Long
Public Declare Function XStrLen Lib "Tavrix32.dll" Alias "_XStrLen@4" _
    (ByVal text As String) As Long
Public Declare Function XStrSpn Lib "Tavrix32.dll" Alias "_XStrSpn@12" _
    (ByVal text As String, ByVal charSet As String, ByVal start As Long) As Long

' The text in a buffer that was filled.
Public Function FromBuffer(ByVal buffer As String) As String
    Dim ending As Long
    ending = InStr(buffer, vbNullChar)
    If ending > 0 Then FromBuffer = Left$(buffer, ending - 1) Else FromBuffer = buffer
End Function

' All names that match, in a collection. A folder below the roots is entered to any depth.
Public Function AllFiles(ByVal pattern As String) As Collection
    Dim buffer As String
    Set AllFiles = New Collection
    buffer = String$(262, vbNullChar)
    Do While XFileList(buffer, pattern, vbNullString, FL_RECURSE) <> 0
        AllFiles.Add FromBuffer(buffer)
        buffer = String$(262, vbNullChar)
    Loop
    ' 0 is also the result of a failure, which leaves a trail.
End Function

' The error codes of the newest failure, "" when there was none. Clear the buffer first: without a
' failure it is left as it is.
Public Function ErrorTrail() As String
    Dim buffer As String
    buffer = String$(256, vbNullChar)
    XErrorInfo buffer
    ErrorTrail = FromBuffer(buffer)
End Function

' Starts a program and waits for it. False when it could not be started.
Public Function RunAndWait(ByVal commandLine As String) As Boolean
    RunAndWait = XProcStart(commandLine) = 0
End Function

' Asks for a file; "" when the user cancels.
Public Function AskForFile(ByVal title As String) As String
    Dim ofn As OPENFILENAME
    ofn.lpstrFilter = "All files" & vbNullChar & "*.*" & vbNullChar & vbNullChar
    ofn.lpstrFile = String$(260, vbNullChar)
    ofn.nMaxFile = 260
    ofn.lpstrTitle = title
    If XDlgFileOpen(ofn) <> 0 Then AskForFile = FromBuffer(ofn.lpstrFile)
End Function

' The word that begins at a position (from 1), up to a blank or tab.
Public Function WordAt(ByVal text As String, ByVal start As Long) As String
    WordAt = Mid$(text, start, XStrCSpn(text, " " & vbTab, start) - 1)
End Function

// Tavrix32.dll for C#. Compile for x86: the DLL is a 32-bit one.
//
//   csc -platform:x86 Tavrix32.cs
using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;
using System.Text;

public static class Tavrix32
{
    [Flags]
    public enum FileListFlags : uint
    {
        Recurse = 0x80000000,
        Dirs = 0x20000000,
        NoFiles = 0x10000000,
        AsFound = 0x8000000,
        Restart = 0x2000000,
        First = 0x1000000,
        Quote = 0x800000,
    }

    [DllImport("Tavrix32.dll", EntryPoint = "_XErrorInfo@4", CharSet = CharSet.Ansi, ExactSpelling = true)]
    static extern int XErrorInfo(StringBuilder buffer);

    [DllImport("Tavrix32.dll", EntryPoint = "_XFileList@16", CharSet = CharSet.Ansi, ExactSpelling = true)]
    static extern int XFileList(StringBuilder buffer, string roots, string patterns, FileListFlags flags);

    // The system may write to the command line, so that it is a StringBuilder as well.
    [DllImport("Tavrix32.dll", EntryPoint = "_XProcStart@4", CharSet = CharSet.Ansi, ExactSpelling = true)]
    static extern int XProcStart(StringBuilder commandLine);

    // 0: a sorts before b; 1: equal; 2: behind it. Bytes, not letters.
    [DllImport("Tavrix32.dll", EntryPoint = "_XStrCmp@12", CharSet = CharSet.Ansi, ExactSpelling = true)]
    public static extern int XStrCmp(string a, string b, int count);

    [DllImport("Tavrix32.dll", EntryPoint = "_XStrLen@4", CharSet = CharSet.Ansi, ExactSpelling = true)]
    public static extern int XStrLen(string text);

    // Positions count from 1; the result counts from `start`, also from 1.
    [DllImport("Tavrix32.dll", EntryPoint = "_XStrSpn@12", CharSet = CharSet.Ansi, ExactSpelling = true)]
    public static extern int XStrSpn(string text, string set, int start);

    [DllImport("Tavrix32.dll", EntryPoint = "_XStrCSpn@12", CharSet = CharSet.Ansi, ExactSpelling = true)]
    public static extern int XStrCSpn(string text, string set, int start);

    // An OPENFILENAMEA of 76 bytes, laid out by the caller (or use the system's own dialog class).
    [DllImport("Tavrix32.dll", EntryPoint = "_XDlgFileOpen@4", ExactSpelling = true)]
    public static extern int XDlgFileOpen(IntPtr openFileName);

    public static IEnumerable<string> Files(string pattern)
    {
        var name = new StringBuilder(262);
        while (XFileList(name, pattern, null, FileListFlags.Recurse) != 0) yield return name.ToString();
    }

    public static bool RunAndWait(string commandLine)
    {
        return XProcStart(new StringBuilder(commandLine, commandLine.Length + 1)) == 0;
    }

    // The error codes of the newest failure, "" when there was none.
    public static string ErrorTrail()
    {
        var trail = new StringBuilder(256);
        XErrorInfo(trail);
        return trail.ToString();
    }
}

// The "What's new" of whats_new.cpp, in C# through velcan's C interface (P/Invoke).
//   mono WhatsNew.exe INSTALLED_VERSION [FILE]
using System;
using System.Runtime.InteropServices;
using System.Text;

static class Velcan {
    const string Library = "velcan"; // libvelcan.so, velcan.dll

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern IntPtr velcan_last_error();
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int velcan_version_is_valid(byte[] text);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int velcan_history_read_file(byte[] path, out IntPtr history);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int velcan_history_newer_than(IntPtr history, byte[] installed,
                                                       out IntPtr newer);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern void velcan_history_free(IntPtr history);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern UIntPtr velcan_history_count(IntPtr history);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int velcan_history_newest(IntPtr history);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern IntPtr velcan_history_number(IntPtr history, UIntPtr index);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern IntPtr velcan_history_date(IntPtr history, UIntPtr index);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern UIntPtr velcan_history_description_count(IntPtr history, UIntPtr index);
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern IntPtr velcan_history_description(IntPtr history, UIntPtr index,
                                                           UIntPtr d);

    // Texts go in and come out as UTF-8, NUL-terminated.
    public static byte[] Utf8(string s) { return Encoding.UTF8.GetBytes(s + "\0"); }
    public static string Text(IntPtr p) {
        int n = 0;
        while (Marshal.ReadByte(p, n) != 0) n++;
        byte[] bytes = new byte[n];
        Marshal.Copy(p, bytes, 0, n);
        return Encoding.UTF8.GetString(bytes);
    }
}

static class WhatsNew {
    static int Main(string[] args) {
        string installed = args.Length > 0 ? args[0] : "4.1.0";
        string path = args.Length > 1 ? args[1] : "version-history.xml";
        IntPtr history, news = IntPtr.Zero;
        if (Velcan.velcan_history_read_file(Velcan.Utf8(path), out history) != 0 ||
            Velcan.velcan_history_newer_than(history, Velcan.Utf8(installed), out news) != 0) {
            Console.Error.WriteLine(Velcan.Text(Velcan.velcan_last_error()));
            Velcan.velcan_history_free(history);
            return Velcan.velcan_version_is_valid(Velcan.Utf8(installed)) == 1 ? 1 : 2;
        }
        var output = new StringBuilder();
        ulong count = (ulong)Velcan.velcan_history_count(news);
        if (count == 0) {
            output.Append(installed + " is the newest version.\n");
        } else {
            var newest = (UIntPtr)(ulong)Velcan.velcan_history_newest(news);
            output.Append("What's new from " + installed + " to " +
                          Velcan.Text(Velcan.velcan_history_number(news, newest)) + ":\n");
        }
        for (ulong i = 0; i < count; i++) {
            var v = (UIntPtr)i;
            output.Append("\n" + Velcan.Text(Velcan.velcan_history_number(news, v)) + " (" +
                          Velcan.Text(Velcan.velcan_history_date(news, v)) + ")\n");
            ulong descriptions = (ulong)Velcan.velcan_history_description_count(news, v);
            for (ulong d = 0; d < descriptions; d++) {
                string text = Velcan.Text(Velcan.velcan_history_description(news, v, (UIntPtr)d));
                // Each run of blanks and line breaks one space, as the C++ example folds them.
                string[] words = text.Split(new[] {' ', '\t', '\r', '\n'},
                                            StringSplitOptions.RemoveEmptyEntries);
                output.Append("  - " + string.Join(" ", words) + "\n");
            }
        }
        Velcan.velcan_history_free(news);
        Velcan.velcan_history_free(history);
        var stdout = Console.OpenStandardOutput();
        byte[] bytes = new UTF8Encoding(false).GetBytes(output.ToString());
        stdout.Write(bytes, 0, bytes.Length);
        return 0;
    }
}

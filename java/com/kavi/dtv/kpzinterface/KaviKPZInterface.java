// KaviKPZInterface.java - the Java side of libKpzInterface: hands the path of a
// KPZ raw file to the native library and gets back the screennail, the large
// preview JPEG the camera stored in the file.
//
// The native library is loaded once, when the class is first used, with
// System.loadLibrary("KpzInterface"): libKpzInterface.so must lie on
// java.library.path (on Android: in the application's native library folder).
//
//   byte[] jpeg = new KaviKPZInterface().getScreennailNative("/sdcard/DCIM/a.kpz");
//   if (jpeg != null) { Bitmap b = BitmapFactory.decodeByteArray(jpeg, 0, jpeg.length); }
//
// The object holds no state; one instance may be shared by any number of
// threads, each call runs on the calling thread. The native call needs only a
// few kilobytes of the calling thread's native stack.
package com.kavi.dtv.kpzinterface;

public class KaviKPZInterface {
    static {
        System.loadLibrary("KpzInterface");
    }

    /**
     * Returns the bytes of the screennail (preview JPEG) stored in the KPZ raw
     * file at {@code path}, as a new array; an empty array when the file
     * declares a screennail of 0 bytes.
     *
     * @param path the file's path; null gives null
     * @return the screennail bytes, or null when the file cannot be read, holds
     *     no screennail, or its screennail extends past the end of the file
     *     (the reason is written to the Android log, tag "KpzInterface")
     */
    public native byte[] getScreennailNative(String path);
}

// KaviKPZInterface.java - the Java side of libKpzInterface: hands the path of a
// KPZ raw file, or a file descriptor open on one, to the native library and
// gets back the screennail, the large preview JPEG the camera stored in the
// file.
//
// The native library is loaded once, when the class is first used, with
// System.loadLibrary("KpzInterface"): libKpzInterface.so must lie on
// java.library.path (on Android: in the application's native library folder).
//
//   byte[] jpeg = new KaviKPZInterface().getScreennailNative("/sdcard/DCIM/a.kpz");
//   if (jpeg != null) { Bitmap b = BitmapFactory.decodeByteArray(jpeg, 0, jpeg.length); }
//   byte[] fromUri = new KaviKPZInterface().getScreennailFromFd(pfd.getFd());  // content:// URIs
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

    /**
     * Returns the bytes of the screennail (preview JPEG) of the KPZ raw file
     * open on the file descriptor {@code fd}, as a new array; the same bytes
     * as {@link #getScreennailNative(String)} gives for the file's path.
     *
     * <p>The file is read through the descriptor itself with positional reads
     * ({@code pread}): the descriptor's file offset does not move, and the
     * descriptor is neither closed nor kept: it stays the caller's, to close
     * when done. Any seekable descriptor will do, a regular file's or one a
     * content provider hands out; a pipe or a socket cannot be read this way.
     * This is the way to read a {@code content://} URI, whose path is not
     * known or not readable. The call reads the file: make it off the main
     * thread.
     *
     * <pre>{@code
     * byte[] jpeg = null;
     * try (ParcelFileDescriptor pfd = context.getContentResolver().openFileDescriptor(uri, "r")) {
     *     if (pfd != null) {
     *         jpeg = new KaviKPZInterface().getScreennailFromFd(pfd.getFd());
     *     }
     * } catch (IOException e) {
     *     // not found, no permission, or the provider failed
     * }
     * }</pre>
     *
     * Use {@code getFd()}, not {@code detachFd()}: the descriptor must stay open
     * for the whole call, and closing the {@code ParcelFileDescriptor} afterwards
     * (here by try-with-resources) closes it.
     *
     * @param fd an open file descriptor, readable and seekable; a negative one
     *     gives null
     * @return the screennail bytes, or null when the descriptor is negative,
     *     not open or not seekable, cannot be read, the file holds no
     *     screennail, or its screennail extends past the end of the file (the
     *     reason is written to the Android log, tag "KpzInterface")
     */
    public native byte[] getScreennailFromFd(int fd);
}

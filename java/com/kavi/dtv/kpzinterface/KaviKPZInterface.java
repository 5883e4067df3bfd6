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
// For galleries (docs/ANDROID.md): getInfo gives a KpzInfo (orientation,
// sizes, model, date-time), getThumbnail the small JPEG for a grid cell,
// readPreview the large one into a reused direct ByteBuffer; each from one
// read of the file's first 64 KiB, and each failure as a KpzException with a
// kind and the kpz tool's words.
//
//   KpzInfo info = kpz.getInfo(pfd.getFd());
//   byte[] thumb = kpz.getThumbnail(pfd.getFd());
//   int n = kpz.readPreview(pfd.getFd(), buffer);   // buffer: position 0, limit n
//
// The object holds no state; one instance may be shared by any number of
// threads, each call runs on the calling thread. The native call needs only a
// few kilobytes of the calling thread's native stack.
package com.kavi.dtv.kpzinterface;

import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;

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

    // ---- for galleries: info, thumbnail, preview into a buffer ----------
    //
    // Each call opens the file (or takes the descriptor), reads its first
    // 64 KiB once and answers from them; a picture is read only when it lies
    // wholly inside the file. A descriptor is read with positional reads: its
    // offset does not move and it is neither closed nor kept (the rules of
    // getScreennailFromFd). The calls read the file: make them off the main
    // thread. Any number of threads may call at once.

    /**
     * The file's orientation, preview and thumbnail sizes, model and original
     * date-time.
     *
     * @param path the file's path
     * @return the file's info (a preview or thumbnail that cannot be read has
     *     length 0 there; the call still succeeds)
     * @throws KpzException when the file cannot be read or is not a KPZ file
     * @throws NullPointerException when {@code path} is null
     */
    public KpzInfo getInfo(String path) throws KpzException {
        return nativeInfo(pathBytes(path), -1);
    }

    /**
     * As {@link #getInfo(String)} for the file open on descriptor {@code fd}
     * (from {@code ParcelFileDescriptor.getFd()}).
     *
     * @param fd an open, readable descriptor of a regular file
     * @return the file's info
     * @throws KpzException as {@link #getInfo(String)}; a negative, closed or
     *     non-file descriptor (a pipe, a socket) is {@code UNREADABLE}
     */
    public KpzInfo getInfo(int fd) throws KpzException {
        return nativeInfo(null, fd);
    }

    /**
     * The thumbnail, the small JPEG (a few KB) the file carries for grids,
     * as stored: turn it by {@link KpzInfo#getRotationDegrees()} to show it.
     *
     * @param path the file's path
     * @return the thumbnail's bytes, a new array
     * @throws KpzException {@code NO_THUMBNAIL} when the file has none, or as
     *     {@link #getInfo(String)}
     */
    public byte[] getThumbnail(String path) throws KpzException {
        return nativeThumbnail(pathBytes(path), -1);
    }

    /**
     * As {@link #getThumbnail(String)} for the file open on {@code fd}.
     *
     * @param fd an open, readable descriptor of a regular file
     * @return the thumbnail's bytes, a new array
     * @throws KpzException as {@link #getThumbnail(String)} and {@link #getInfo(int)}
     */
    public byte[] getThumbnail(int fd) throws KpzException {
        return nativeThumbnail(null, fd);
    }

    /**
     * Reads the preview (the large JPEG) into {@code buffer}, a direct buffer
     * the caller keeps and reuses, with no Java array made. When it fits
     * ({@code result <= buffer.capacity()}), the preview's bytes are at
     * positions 0 to result - 1, the buffer's position is 0 and its limit
     * the result: hand it to {@code ImageDecoder.createSource(buffer)}. When
     * it does not fit, nothing is read, the buffer is unchanged and the result
     * is the capacity needed: allocate that (or more) and call again.
     *
     * <pre>{@code
     * int n = kpz.readPreview(path, buffer);
     * if (n > buffer.capacity()) {
     *     buffer = ByteBuffer.allocateDirect(n);
     *     n = kpz.readPreview(path, buffer);
     * }
     * }</pre>
     *
     * @param path the file's path
     * @param buffer a direct, writable buffer
     * @return the preview's length in bytes
     * @throws KpzException {@code NO_PREVIEW} when the file has none, or as
     *     {@link #getInfo(String)}
     * @throws IllegalArgumentException when the buffer is not direct or is read-only
     */
    public int readPreview(String path, ByteBuffer buffer) throws KpzException {
        checkBuffer(buffer);
        return previewRead(nativeReadPreview(pathBytes(path), -1, buffer), buffer);
    }

    /**
     * As {@link #readPreview(String, ByteBuffer)} for the file open on {@code fd}.
     *
     * @param fd an open, readable descriptor of a regular file
     * @param buffer a direct, writable buffer
     * @return the preview's length in bytes
     * @throws KpzException as {@link #readPreview(String, ByteBuffer)} and {@link #getInfo(int)}
     */
    public int readPreview(int fd, ByteBuffer buffer) throws KpzException {
        checkBuffer(buffer);
        return previewRead(nativeReadPreview(null, fd, buffer), buffer);
    }

    // The path as the file system takes it: UTF-8 bytes.
    private static byte[] pathBytes(String path) {
        if (path == null) {
            throw new NullPointerException("path");
        }
        if (path.indexOf('\0') >= 0) {
            throw new IllegalArgumentException("path contains a zero character");
        }
        return path.getBytes(StandardCharsets.UTF_8);
    }

    private static void checkBuffer(ByteBuffer buffer) {
        if (buffer == null) {
            throw new NullPointerException("buffer");
        }
        if (!buffer.isDirect()) {
            throw new IllegalArgumentException("buffer is not direct (ByteBuffer.allocateDirect)");
        }
        if (buffer.isReadOnly()) {
            throw new IllegalArgumentException("buffer is read-only");
        }
    }

    private static int previewRead(long length, ByteBuffer buffer) throws KpzException {
        if (length > Integer.MAX_VALUE) {
            throw new KpzException(KpzException.Kind.DAMAGED, 0,
                    "the preview is larger than 2 GiB, more than a buffer holds");
        }
        if (length <= buffer.capacity()) {
            buffer.clear();
            buffer.limit((int) length);
        }
        return (int) length;
    }

    // `path` (UTF-8, no terminating zero) or, when null, descriptor `fd`.
    private static native KpzInfo nativeInfo(byte[] path, int fd) throws KpzException;

    private static native byte[] nativeThumbnail(byte[] path, int fd) throws KpzException;

    // The preview's length; the bytes are in `buffer` when it is no more than its capacity.
    private static native long nativeReadPreview(byte[] path, int fd, ByteBuffer buffer)
            throws KpzException;
}

// KpzException.java - why KaviKPZInterface could not give what was asked of
// one KPZ raw file: a kind to act on, the system's error number where there
// was one, and the reason in the same words as the kpz tool prints for that
// file ("not a KPZ raw file (no TIFF header)", "no thumbnail stored in this
// file", "file not found", ...).
//
//   try {
//       KpzInfo info = kpz.getInfo(pfd.getFd());
//   } catch (KpzException e) {
//       switch (e.getKind()) {
//           case NOT_KPZ:      // hand the file to another decoder
//           case DAMAGED:      // show a broken-file placeholder
//           case NO_PREVIEW:
//           case NO_THUMBNAIL: // fall back to the other picture
//           case UNREADABLE:   // e.getErrno(): permission, I/O error, ...
//       }
//   }
//
// Thrown by the native methods of KaviKPZInterface; immutable.
package com.kavi.dtv.kpzinterface;

import java.nio.charset.StandardCharsets;

public final class KpzException extends Exception {
    private static final long serialVersionUID = 1L;

    /** What kind of failure, in the order the native library numbers them. */
    public enum Kind {
        /**
         * Not a KPZ raw file: laid out as something else, or cut short or
         * with broken pointers within its header and directories (the words
         * say which).
         */
        NOT_KPZ,
        /**
         * A picture recorded that does not lie wholly inside the file, lies
         * out of reach or is too large, whose location cannot be read, or
         * whose read meets the end of the file first.
         */
        DAMAGED,
        /** The file records no preview, or an empty one. */
        NO_PREVIEW,
        /** The file records no thumbnail, or an empty one. */
        NO_THUMBNAIL,
        /**
         * The file cannot be opened or read: missing, no permission, an
         * input/output error, a directory, a pipe; {@link #getErrno()} says
         * which when the system said it.
         */
        UNREADABLE
    }

    private final Kind kind;
    private final int errno;

    /**
     * @param kind the kind of failure
     * @param errno the system's error number, or 0
     * @param message the reason in words
     */
    public KpzException(Kind kind, int errno, String message) {
        super(message);
        if (kind == null) {
            throw new NullPointerException("kind");
        }
        this.kind = kind;
        this.errno = errno;
    }

    // From the native library: the kind's ordinal and the words as UTF-8.
    KpzException(int kind, int errno, byte[] words) {
        this(Kind.values()[kind], errno, new String(words, StandardCharsets.UTF_8));
    }

    /** The kind of failure. */
    public Kind getKind() {
        return kind;
    }

    /**
     * The system's error number ({@code errno}, as in {@code OsConstants}) of
     * an {@link Kind#UNREADABLE} failure when the system gave one, for example
     * 2 (ENOENT), 13 (EACCES), 5 (EIO), 29 (ESPIPE: a pipe); 0 otherwise.
     */
    public int getErrno() {
        return errno;
    }
}

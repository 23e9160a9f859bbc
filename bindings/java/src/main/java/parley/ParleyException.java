// SPDX-License-Identifier: Apache-2.0
package parley;

/** A failure, with a sentence that says what is wrong. */
public final class ParleyException extends RuntimeException {
    private static final long serialVersionUID = 1;

    /** What kind of failure it is. */
    public enum Status {
        /** There is not enough memory. */
        OUT_OF_MEMORY(CInterface.PARLEY_OUT_OF_MEMORY),
        /** A file cannot be opened or ends too early. */
        UNREADABLE(CInterface.PARLEY_UNREADABLE),
        /** An argument, an option, a model or a format that makes no sense. */
        INVALID(CInterface.PARLEY_INVALID),
        /** The run was cancelled. */
        CANCELLED(CInterface.PARLEY_CANCELLED),
        /** There is no such file. */
        MISSING(CInterface.PARLEY_MISSING),
        /** Anything else. */
        FAILED(CInterface.PARLEY_FAILED);

        private final int code;

        Status(int code) {
            this.code = code;
        }
    }

    /** What kind of failure it is. */
    private final Status status;

    /** What the engine said about it. */
    private final String details;

    ParleyException(Status status, String message, String details) {
        super(message);
        this.status = status;
        this.details = details;
    }

    /** Throws the calling thread's failure, if the code is one. */
    static void check(int code) {
        if (code == CInterface.PARLEY_OK) return;
        Status found = Status.FAILED;
        for (Status status : Status.values()) if (status.code == code) found = status;
        throw new ParleyException(found, Parley.C.parley_message(), Parley.C.parley_details());
    }

    /**
     * Tells what kind of failure it is.
     *
     * @return the kind
     */
    public Status status() {
        return status;
    }

    /**
     * Tells what the engine said about it.
     *
     * @return a line each; may be empty
     */
    public String details() {
        return details;
    }
}

"""Old names kept working for a while: keyword arguments that were renamed.

A renamed keyword argument keeps its old name for at least one minor release
(docs/COMPATIBILITY.md): a call with the old name does what the new name does
and warns with a DeprecationWarning that names the new one. The function's
signature (inspect.signature, help()) shows only the new names.

    @renamed_keywords(since="1.1.0", removed_in="2.0.0", client="cluster")
    def extract(sources, out, *, cluster=None): ...
"""

import functools
import warnings
from typing import Any, Callable, TypeVar

F = TypeVar("F", bound=Callable[..., Any])


def renamed_keywords(since: str, removed_in: str, **renames: str) -> Callable[[F], F]:
    """A decorator: each keyword `old` of `renames` is taken as `renames[old]`,
    with a DeprecationWarning pointing at the caller's line.

    Several old names may map to one new name (they were one choice made two
    ways): the first of them in `renames` that is given and not None wins, as
    it did before the rename. An old name and its new name both given (not
    None) is a TypeError in words: which one was meant is not ours to guess."""

    def decorate(function: F) -> F:
        name = function.__name__

        @functools.wraps(function)
        def wrapper(*args: Any, **kwargs: Any) -> Any:
            taken: dict = {}
            for old, new in renames.items():
                if old not in kwargs:
                    continue
                value = kwargs.pop(old)
                warnings.warn(
                    "%s(): %s= is deprecated since kpz %s and will be removed in kpz %s; use %s= "
                    "(it takes the same values)" % (name, old, since, removed_in, new),
                    DeprecationWarning, stacklevel=2)
                if value is None:
                    continue
                if kwargs.get(new) is not None:
                    raise TypeError(
                        "%s(): %s= and %s= were both given; %s= is the deprecated name of %s=: "
                        "give %s= only" % (name, old, new, old, new, new))
                if new in taken:
                    continue  # an earlier old name for the same choice won
                taken[new] = value
            kwargs.update(taken)
            return function(*args, **kwargs)

        return wrapper  # type: ignore[return-value]

    return decorate

"""Commands whose rules another one shares."""

from importlib.machinery import SourceFileLoader
from importlib.util import module_from_spec, spec_from_loader


def load_command(machine, name):
    """Returns the Python command of that name as a module, without running it."""
    loader = SourceFileLoader(name.replace("-", "_"), str(machine.command(name)))
    module = module_from_spec(spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module

#!/usr/bin/env python3
"""Every link of the reference leads to an existing page and to an existing anchor. Usage: links_test.py FOLDER."""
import re
import sys
from html import unescape
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit


# Doxygen shows the members of unnamed unions on these pages without anchors: links to them lead to the top of the page.
WITH_UNNAMED_UNIONS = ('structUsbDeviceInfo.html', 'structUsbEventV2.html')


class Page(HTMLParser):
    """The links of a page, and its anchors."""

    def __init__(self, text):
        super().__init__()
        self.links, self.anchors = set(), set()
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        self.anchors |= {attributes[name] for name in ('id', 'name') if attributes.get(name)}
        self.links |= {attributes[name] for name in ('href', 'src') if attributes.get(name)}


def broken(folder):
    pages = {path.name: Page(path.read_text()) for path in folder.glob('*.html')}
    for name, page in pages.items():
        for link in page.links:
            parts = urlsplit(link)
            target = parts.path or name
            if parts.scheme:
                continue
            if not (folder / target).exists():
                yield f'{name}: {target} does not exist'
            elif parts.fragment and target not in WITH_UNNAMED_UNIONS and unquote(parts.fragment) not in pages[target].anchors:
                yield f'{name}: {link} does not exist'


def main(folder):
    folder = Path(folder)
    faults = sorted(broken(folder))
    assert not faults, '\n'.join(faults)
    # The reference contains the protocol pages, the examples and the search.
    for name in ('page_remote_protocol.html', 'page_plant_file.html', 'page_tutorial.html', 'page_troubleshooting.html', 'stations_8c-example.html', 'search/search.js'):
        assert (folder / name).exists(), f'{name} is missing'
    # The search also finds text in the middle of a name: there is one index for each kind, and names are matched anywhere.
    search = folder / 'search'
    assert len(list(search.glob('all_*.js'))) == 1
    assert "'KVO_HWS_setBacklightBrightness'" in (search / 'functions_0.js').read_text()
    assert 'rowMatchName.indexOf(search)' in (search / 'search.js').read_text()
    # The search offers a page only once, however many words of its title are indexed.
    for index in ('groups_0.js', 'pages_0.js'):
        offered = re.findall(r"'\.\./(\w+\.html)'", (search / index).read_text())
        assert offered and len(offered) <= 1.1 * len(set(offered)), f'{index} offers the same page more than once'
    # Function names in the pages are links, and headings have anchors.
    assert 'group__kvo__hws__stations.html#' in (folder / 'page_programming.html').read_text()
    assert 'page_remote_protocol.html#page_remote_protocol-commands-passed-to-the-host-program' in (folder / 'page_programming.html').read_text()
    # The C++ interface: each header and class has a page, and internal names have none.
    for name in ('address_8hpp.html', 'classkvo_1_1Result.html', 'namespacekvo.html', 'stations_8cpp-example.html', 'panel_2poll_8cpp-example.html'):
        assert (folder / name).exists(), f'{name} is missing'
    assert not list(folder.glob('*detail*')), 'a page about internal names'
    assert "'../classkvo_1_1Address.html'" in (search / 'classes_0.js').read_text()
    # The names of C++ in the pages are links, too.
    cpp = (folder / 'page_cpp.html').read_text()
    assert re.search(r'href="classkvo_1_1Station.html#\w+">kvo::Station::mcp_address</a>', cpp), 'page_cpp.html has no link to a member'
    assert re.search(r'href="group__kvo__cpp__service.html#\w+">kvo::library_version</a>', cpp), 'page_cpp.html has no link to a function'
    # The pages show no markup as text. In code, a lambda of C++ looks like a link.
    for page in folder.glob('page_*.html'):
        text = re.sub(r'<div class="fragment">.*?<!-- fragment -->|<code>.*?</code>', '', page.read_text(), flags=re.DOTALL)
        assert not any(mark in text for mark in ('](', '&lt;!', '`<a')), f'{page.name} shows the markup of a link or a comment'
    assert '](' not in (folder / 'index.html').read_text(), 'a link of the main page is shown as text'
    # Text in angle brackets is shown, and protocol texts are complete.
    assert '"setKVOIndex="<index>" <station>"' in unescape((folder / 'group__kvo__hws__addresses.html').read_text())
    print(f'{len(list(folder.glob("*.html")))} pages, no broken link')


if __name__ == '__main__':
    main(sys.argv[1])

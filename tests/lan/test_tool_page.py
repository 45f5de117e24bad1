"""The page in a browser that has no network."""

import pytest

from browser import Browser
from camera import Responder, reply
from toolrun import lanscout, simulated
from upnpdevice import Device, answer, description

ROWS = "return [...document.querySelectorAll('#rows tr.device')].map(r => r.cells[0].textContent)"


def page_of(network, host, *options):
    path = network.folder / "page.html"
    lanscout(host, "--quiet", "--html", path, "--timeout", 4, *options)
    return path


@pytest.mark.ctest(timeout=180)
def test_page_sorts_filters_and_shows_details(network):
    path = page_of(network, simulated(network, cameras=25))
    with Browser(network) as browser:
        browser.open(path)
        assert browser.console() == []
        rows = browser.run(ROWS)
        assert len(rows) == 25
        assert rows == sorted(rows, key=lambda ip: [int(part) for part in ip.split(".")])
        browser.run("document.querySelector('th[data-key=ip] button').click()")
        assert browser.run(ROWS) == rows[::-1]
        browser.run("const f = document.getElementById('filter'); f.value = arguments[0];"
                    "f.dispatchEvent(new Event('input'))", rows[7] + " onvif")
        assert browser.run(ROWS) == [rows[7]]
        browser.run("document.querySelector('#rows tr.device').click()")
        assert "SEEN ON" in browser.run("return document.querySelector('tr.details').textContent")
        assert browser.run("return document.querySelectorAll('#map g.node').length") == 25
        assert browser.console() == []


@pytest.mark.ctest(timeout=180)
def test_nothing_that_a_device_says_runs_or_breaks_the_page(network):
    searcher, host = network.namespace(), network.namespace()
    network.cable(searcher, host, "10.1.0.1/24", "10.1.0.2/24")
    name = "</script><script>document.title='broken'</script><img src=x onerror=\"document.title=1\">"
    text = description(f"<![CDATA[{name}]]>").replace(
        b"<modelName>", b"<presentationURL>javascript:document.title=1</presentationURL><modelName>")
    with Device(host, "10.1.0.2", {"/d.xml": answer(text)}), \
            Responder(host, "eth0", ["10.1.0.2"],
                      lambda probe: [reply(probe, scopes="onvif://www.onvif.org/hardware/"
                                           "%3Cb%3Ebold%3C/b%3E%E2%80%AEgnp")]):
        path = page_of(network, searcher)
    with Browser(network) as browser:
        browser.open(path)
        browser.run("document.querySelector('#rows tr.device').click()")
        cells = browser.run("return [...document.querySelectorAll('#rows tr.device td')]"
                            ".map(c => c.textContent)")
        assert name in cells
        assert r"<b>bold</b>\u{202e}gnp" in cells
        assert browser.run("return document.title") == "Devices on the network"
        assert browser.run("return document.querySelectorAll('main img, main b').length") == 0
        assert browser.run("return document.scripts.length") == 2
        assert set(browser.run("return [...document.links].map(l => l.protocol)")) == {"http:"}
        assert browser.console() == []


@pytest.mark.ctest(timeout=180)
def test_page_fits_a_phone(network):
    path = page_of(network, simulated(network, cameras=25))
    with Browser(network, width=390, height=844, phone=True) as browser:
        browser.open(path)
        assert browser.run("return window.innerWidth") == 390
        assert browser.run("return document.documentElement.scrollWidth <= window.innerWidth")
        assert browser.run("return getComputedStyle(document.querySelector('thead')).display") \
            == "none"
        assert len(browser.run(ROWS)) == 25
